// SPDX-License-Identifier: MIT
#include "simulator.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QPainter>

QImage Simulator::plainPage()
{
    // Two coloured halves of 400 x 400 with a lamp in each, and a dark band below.
    QImage page(800, 480, QImage::Format_RGB32);
    QPainter painter(&page);
    painter.fillRect(0, 0, 400, 400, QColor("#d7efe0"_s));
    painter.fillRect(400, 0, 400, 400, QColor("#f6dcd7"_s));
    painter.fillRect(0, 400, 800, 80, QColor("#12181f"_s));
    painter.drawImage(QRect(152, 152, 96, 96), QImage(VARNEL_SOURCE_DIR "/simulator/web/images/green.png"_s));
    painter.drawImage(QRect(552, 152, 96, 96), QImage(VARNEL_SOURCE_DIR "/simulator/web/images/red.png"_s));
    return page;
}

bool Simulator::startAndListen(const QStringList& options)
{
    const QStringList usual{"--http"_s, "192.168.7.2:80"_s, "--broadcast"_s, "--stdin"_s, "--log"_s};
    const bool listening =
        start(usual + options) && awaitTrue([this] { return output().contains("listening"); });
    if (!listening) {
        qWarning() << "The simulator does not listen:" << log().lines();
    }
    return listening;
}

QJsonObject Simulator::awaitUpload() const
{
    QJsonObject request;
    const auto arrives = [&] {
        const QList<QByteArray> lines = output().split('\n');
        for (const QByteArray& line : lines) {
            request = QJsonDocument::fromJson(line).object();
            if (request.value("path"_s) == "/upload"_s) {
                return true;
            }
        }
        return false;
    };
    if (!awaitTrue(arrives)) {
        qWarning() << "Nothing arrives";
    }
    return request.value("uploads"_s).toArray().at(0).toObject();
}

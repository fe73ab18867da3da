// SPDX-License-Identifier: MIT
#include "simulator.h"

#include <QJsonDocument>
#include <QTest>

namespace VarnelTest {

Simulator::Simulator(QObject* parent)
    : Program("r7m-simulator"_s, parent)
{
}

bool Simulator::startAndListen(const QStringList& options)
{
    const QStringList usual{"--http"_s, "192.168.7.2:80"_s, "--broadcast"_s, "--stdin"_s, "--log"_s};
    const bool listening = start(usual + options) &&
                           QTest::qWaitFor([this] { return output().contains("listening"); },
                                           static_cast<int>(std::chrono::milliseconds(patience).count()));
    if (!listening) {
        qWarning() << "The simulator does not listen:" << log().lines();
    }
    return listening;
}

void Simulator::act(const QString& action)
{
    write(action.toUtf8() + '\n');
}

QList<QJsonObject> Simulator::events() const
{
    QList<QJsonObject> result;
    const QList<QByteArray> lines = output().split('\n');
    for (const QByteArray& line : lines) {
        if (line.startsWith('{')) {
            result += QJsonDocument::fromJson(line).object();
        }
    }
    return result;
}

} // namespace VarnelTest

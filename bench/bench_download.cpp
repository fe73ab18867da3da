// SPDX-License-Identifier: MIT
// Saving a download, its synchronization with the disk included, against a plain copy of the body to a file.
// To be run where the temporary directory is on a disk. Options: --rounds N, --quick.
#include <malloc.h>
#include <unistd.h>

#include <QApplication>
#include <QDialogButtonBox>
#include <QEventLoop>
#include <QFile>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QPushButton>

#include "bodyserver.h"
#include "dialogdriver.h"
#include "downloadhandler.h"
#include "figures.h"
#include "subject.h"
#include "usbstick.h"

using namespace VarnelBench;

namespace {

constexpr double mebibyte = 1024 * 1024;

double statusMiB(const char* name)
{
    QFile file(QStringLiteral("/proc/self/status"));
    if (file.open(QIODevice::ReadOnly)) {
        for (QByteArray line = file.readLine(); !line.isEmpty(); line = file.readLine()) {
            if (line.startsWith(name)) {
                return line.simplified().split(' ').value(1).toDouble() / 1024;
            }
        }
    }
    qFatal("/proc/self/status has no %s", name);
}

/// Frees the memory of earlier transfers, and resets the kernel's peak value.
void resetPeak()
{
    ::malloc_trim(0);
    QFile file(QStringLiteral("/proc/self/clear_refs"));
    if (!file.open(QIODevice::WriteOnly) || file.write("5") != 1) {
        qFatal("the peak of memory cannot be reset");
    }
}

/// Time and additional memory of one transfer.
struct Cost
{
    double ms = 0;
    double peakMiB = 0;
};

template<typename Transfer>
Cost costOf(Transfer transfer)
{
    resetPeak();
    const double memory = statusMiB("VmRSS:");
    const double start = nowMs();
    transfer();
    return {nowMs() - start, statusMiB("VmHWM:") - memory};
}

class Bench
{
public:
    explicit Bench(quint16 port)
        : port(port)
    {
        user.onWaiting(QStringLiteral("FileDialog"), [](QDialog* dialog) {
            dialog->findChild<QDialogButtonBox*>()->button(QDialogButtonBox::Ok)->click();
        });
        user.onWaiting(QStringLiteral("TimedPopup"), [](QDialog* popup) { popup->close(); });
    }

    /// Reads and writes piece by piece.
    void copy(int size)
    {
        QFile file(stick.path(QStringLiteral("copy")));
        if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
            qFatal("cannot write");
        }
        const std::unique_ptr<QNetworkReply> reply(request(size));
        QEventLoop loop;
        QObject::connect(reply.get(), &QNetworkReply::readyRead, &file,
                         [&] { file.write(reply->readAll()); });
        QObject::connect(reply.get(), &QNetworkReply::finished, &loop, &QEventLoop::quit);
        loop.exec();
        file.flush();
        ::fsync(file.handle());
        check(&file, size);
    }

    /// The panel's way, as the page offers it.
    void download(int size)
    {
        Varnel::DownloadHandler handler(nullptr);
        QNetworkReply* const reply = request(size);
        QEventLoop loop;
        bool ended = false;
        QObject::connect(reply, &QNetworkReply::metaDataChanged, &handler, [&] {
            reply->deleteLater();
            handler.start(reply);
        });
        QObject::connect(reply, &QObject::destroyed, &loop, [&] {
            ended = true;
            loop.quit();
        });
        if (!ended) {
            loop.exec();
        }
        QFile file(stick.path(QString::number(size)));
        check(&file, size);
    }

private:
    QNetworkReply* request(int size)
    {
        return manager.get(
            QNetworkRequest(QUrl(QStringLiteral("http://127.0.0.1:%1/%2").arg(port).arg(size))));
    }

    static void check(QFile* file, int size)
    {
        if (file->size() != size) {
            qFatal("only %lld of %d octets were saved", file->size(), size);
        }
        file->remove();
    }

    quint16 port;
    UsbStick stick;
    QNetworkAccessManager manager;
    DialogDriver user;
};

void benchSize(Bench* bench, int size, int rounds)
{
    const std::string title = "download of " + std::to_string(int(size / mebibyte)) + " MiB";
    std::vector<Series> time{{"plain copy, fsync"}, {"panel"}};
    std::vector<Series> memory{{"the body"}, {"plain copy"}, {"panel"}};
    for (int round = -1; round < rounds; ++round) {
        const Cost floor = costOf([&] { bench->copy(size); });
        const Cost panel = costOf([&] { bench->download(size); });
        if (round >= 0) {
            time[0].values.push_back(floor.ms);
            time[1].values.push_back(panel.ms);
            memory[0].values.push_back(size / mebibyte);
            memory[1].values.push_back(floor.peakMiB);
            memory[2].values.push_back(panel.peakMiB);
        }
    }
    printFigure(title + ": saved and synchronized", "ms", time);
    printFigure(title + ": peak memory", "MiB", memory);
}

} // namespace

int main(int argc, char* argv[])
{
    const BodyServer server;
    qputenv("QT_QPA_PLATFORM", "offscreen");
    const QApplication application(argc, argv);
    const int rounds = roundsFrom(argc, argv, 9);
    dropLog();
    Bench bench(server.port());
    for (const int mebibytes : {1, 8, 64}) {
        benchSize(&bench, mebibytes << 20, rounds);
    }
    return 0;
}

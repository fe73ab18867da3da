// SPDX-License-Identifier: MIT
// Saving a download, its synchronization with the disk included, against a plain copy of the body to a file.
// To be run where the temporary directory is on a disk. Options: --rounds N, --quick.
#include <unistd.h>

#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>

#include "downloadscene.h"
#include "figures.h"

using namespace VarnelBench;

namespace {

class Bench : private DownloadScene
{
public:
    Bench() { setUp(); }

    void figure(int mebibytes, int rounds)
    {
        const int size = mebibytes << 20;
        server->serve(logPath, QByteArray(size, 'x'), "application/octet-stream");
        std::vector<Series> series{{"plain copy, `fsync`"}, {"panel"}};
        for (int round = -1; round < rounds; ++round) {
            const double floor = timed(&Bench::copy, size);
            const double panel = timed(&Bench::download, size);
            if (round >= 0) {
                series[0].values.push_back(floor);
                series[1].values.push_back(panel);
            }
        }
        printFigure("download of " + std::to_string(mebibytes) + " MiB, saved and synchronized", "ms",
                    series);
    }

private:
    /// The milliseconds of one transfer, whose file goes afterwards.
    double timed(void (Bench::*transfer)(), int size)
    {
        QElapsedTimer timer;
        timer.start();
        (this->*transfer)();
        const auto time = static_cast<double>(timer.nsecsElapsed()) / 1e6;
        QFile file(stick("log.txt"));
        if (file.size() != size || !file.remove()) {
            qFatal("the file was not saved");
        }
        return time;
    }

    /// Reads and writes piece by piece.
    void copy()
    {
        QFile file(stick("log.txt"));
        if (!file.open(QIODevice::WriteOnly)) {
            qFatal("cannot write");
        }
        const QPointer<QNetworkReply> reply = request(logPath);
        QEventLoop loop;
        connect(reply, &QNetworkReply::readyRead, &file, [&] { file.write(reply->readAll()); });
        connect(reply, &QNetworkReply::finished, &loop, &QEventLoop::quit);
        loop.exec();
        reply->deleteLater();
        file.flush();
        ::fsync(file.handle());
    }

    /// The panel's way, as the page offers it.
    void download()
    {
        QEventLoop loop;
        connect(offer(logPath), &QObject::destroyed, &loop, &QEventLoop::quit);
        loop.exec();
    }
};

} // namespace

int main(int argc, char* argv[])
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    dropLog();
    const QApplication application(argc, argv);
    const int rounds = roundsFrom(argc, argv, 9);
    Bench bench;
    for (const int mebibytes : {1, 8}) {
        bench.figure(mebibytes, rounds);
    }
    return 0;
}

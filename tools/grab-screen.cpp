// SPDX-License-Identifier: MIT
// Saves a picture of an X screen once it no longer changes.

#include <chrono>

#include <QCommandLineParser>
#include <QElapsedTimer>
#include <QGuiApplication>
#include <QPixmap>
#include <QScreen>
#include <QThread>
#include <QtDebug>

#include "log.h"

namespace {

QImage grab()
{
    return QGuiApplication::primaryScreen()->grabWindow(0).toImage();
}

/// The first picture that stays the same for `quiet`, or the last one after `limit`: a page with a clock
/// never stops changing.
QImage grabStill(std::chrono::milliseconds quiet, std::chrono::milliseconds limit)
{
    QElapsedTimer timer;
    timer.start();
    QImage picture = grab();
    while (timer.elapsed() < limit.count()) {
        QThread::msleep(static_cast<unsigned long>(quiet.count()));
        const QImage next = grab();
        if (next == picture) {
            return picture;
        }
        picture = next;
    }
    return picture;
}

} // namespace

int main(int argc, char* argv[])
{
    Varnel::logToStandardError("grab-screen");
    QGuiApplication application(argc, argv);
    QGuiApplication::setApplicationName(QStringLiteral("grab-screen"));
    QGuiApplication::setApplicationVersion(QStringLiteral(VARNEL_VERSION));
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Saves a picture of the X screen $DISPLAY once it no longer changes."));
    parser.addPositionalArgument(QStringLiteral("file"), QStringLiteral("The picture, such as screen.png."));
    parser.addHelpOption();
    parser.addVersionOption();
    parser.process(application);
    if (parser.positionalArguments().size() != 1) {
        parser.showHelp(2);
    }
    const QString file = parser.positionalArguments().first();
    if (!grabStill(std::chrono::milliseconds(700), std::chrono::seconds(7)).save(file)) {
        qCritical().noquote() << "cannot write" << file;
        return 1;
    }
    return 0;
}

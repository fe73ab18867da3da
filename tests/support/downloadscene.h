// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <memory>

#include <QDialogButtonBox>
#include <QLabel>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QPointer>
#include <QPushButton>
#include <QTest>

#include "dialogdriver.h"
#include "downloadhandler.h"
#include "logrecorder.h"
#include "screensaver.h"
#include "usbstick.h"
#include "webserver.h"

/// A download handler with all that surrounds it: a real web server whose replies are offered to the handler
/// the way the page does it (from within the event loop, as soon as the headers are there, and scheduled for
/// deletion beforehand), a USB drive, and a user who says yes to every name and sees every message.
class DownloadScene : public QObject
{
protected:
    const QString logPath = "/logs/log.txt"_s;

    void setUp()
    {
        Varnel::ScreenSaver::instance(); // so that its first log lines are in no test's log
        users = std::make_unique<UsbStick>();
        server = std::make_unique<WebServer>();
        manager = std::make_unique<QNetworkAccessManager>();
        window = std::make_unique<QWidget>();
        handler = std::make_unique<Varnel::DownloadHandler>(window.get());
        user = std::make_unique<DialogDriver>();
        log = std::make_unique<LogRecorder>();
        messages.clear();
        started.clear();
        answerChooser(QDialogButtonBox::Ok);
        user->onWaiting("TimedPopup"_s, [this](QDialog* popup) {
            messages << popup->findChild<QLabel*>("lblMsg"_s)->text();
            popup->close();
            QCOMPARE(popup->parentWidget(), window.get());
        });
    }

    /// Destroys the scene, and makes sure that every dialog of the test is closed, however the test ended.
    void tearDown()
    {
        handler.reset();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QCOMPARE(QApplication::topLevelWidgets(), QWidgetList{window.get()});
        user.reset();
        log.reset();
        manager.reset();
        server.reset();
        window.reset();
        users.reset();
    }

    QPointer<QNetworkReply> request(const QString& path)
    {
        return manager->get(QNetworkRequest(server->url(path)));
    }

    /// The reply deletes itself when it is finished.
    QNetworkReply* offer(const QString& path)
    {
        QNetworkReply* const reply = request(path);
        connect(reply, &QNetworkReply::metaDataChanged, handler.get(), [this, reply] {
            reply->deleteLater();
            started << handler->start(reply);
        });
        connect(reply, &QNetworkReply::finished, reply, &QObject::deleteLater);
        return reply;
    }

    QNetworkReply* offer(const QString& path, const WebServer::Answer& answer)
    {
        server->serve(path, answer);
        return offer(path);
    }

    /// Offers a log whose second half comes on release() only, and waits until its first half is there.
    QNetworkReply* offerHalf()
    {
        QNetworkReply* const reply = offer(logPath, {{}, "first part, second part", 10, true});
        const auto isThere = [this, reply] {
            return started == QVector<bool>{true} && reply->bytesAvailable() == 10;
        };
        if (!QTest::qWaitFor(isThere)) {
            qFatal("the download does not begin");
        }
        return reply;
    }

    /// The log so far, as withoutStamps() has it.
    QStringList lines() const { return withoutStamps(log->texts()); }

    QStringList criticalLines() const
    {
        QStringList result;
        for (int i = 0; i < log->lines().size(); ++i) {
            if (log->lines().at(i).type == QtCriticalMsg) {
                result << lines().at(i);
            }
        }
        return result;
    }

    /// The whole log of a download from `path` to the file `name` without any trouble.
    QStringList savedLines(const QString& path, const char* name) const
    {
        return {
            "TIME - Download request for '%1'"_s.arg(url(path)),
            "Rw-remount the usb drive"_s,
            "RemountUSB \"rw\""_s,
            "TIME - File will be saved to '%1'"_s.arg(stick(name)),
            "TIME - Download complete"_s,
            "Ro-remount the usb drive"_s,
            "RemountUSB \"ro\""_s,
        };
    }

    static void press(QDialog* dialog, QDialogButtonBox::StandardButton button)
    {
        QTest::mouseClick(dialog->findChild<QDialogButtonBox*>()->button(button), Qt::LeftButton);
    }

    /// Lets the user press `button` in every chooser from now on, after `before` has happened.
    void answerChooser(QDialogButtonBox::StandardButton button, const std::function<void()>& before = {})
    {
        user->onWaiting("FileDialog"_s, [this, button, before](QDialog* dialog) {
            if (before) {
                before();
            }
            press(dialog, button);
            QCOMPARE(dialog->parentWidget(), window.get());
        });
    }

    static QWidget* findPopup(const QString& form)
    {
        for (QWidget* const widget : QApplication::topLevelWidgets()) {
            if (widget->objectName() == form && widget->isVisible()) {
                return widget;
            }
        }
        return nullptr;
    }

    QString stick(const char* name) const { return users->path(QString::fromLatin1(name)); }
    QString url(const QString& path) const { return server->url(path).toString(); }

    std::unique_ptr<UsbStick> users;
    std::unique_ptr<WebServer> server;
    std::unique_ptr<QNetworkAccessManager> manager;
    std::unique_ptr<QWidget> window; ///< over which the dialogs open
    std::unique_ptr<Varnel::DownloadHandler> handler;
    std::unique_ptr<DialogDriver> user;
    std::unique_ptr<LogRecorder> log;
    QStringList messages;  ///< of the timed popups
    QVector<bool> started; ///< what start() has returned
};

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
#include <QRegularExpression>
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
    const QString logPath = QStringLiteral("/logs/log.txt");

    void setUp()
    {
        Varnel::ScreenSaver::instance(); // so that its first log lines are in no test's log
        users = std::make_unique<UsbStick>();
        server = std::make_unique<WebServer>();
        manager = std::make_unique<QNetworkAccessManager>();
        handler = std::make_unique<Varnel::DownloadHandler>(nullptr);
        user = std::make_unique<DialogDriver>();
        log = std::make_unique<LogRecorder>();
        messages.clear();
        started.clear();
        answerChooser(QDialogButtonBox::Ok);
        user->onWaiting(QStringLiteral("TimedPopup"), [this](QDialog* popup) {
            messages << popup->findChild<QLabel*>(QStringLiteral("lblMsg"))->text();
            popup->close();
        });
    }

    /// Destroys the scene, and makes sure that every dialog of the test is closed, however the test ended.
    void tearDown()
    {
        handler.reset();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QCOMPARE(QApplication::topLevelWidgets(), QWidgetList());
        user.reset();
        log.reset();
        manager.reset();
        server.reset();
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

    /// The log so far, with the time stamps replaced by "NOW".
    QStringList lines() const
    {
        QStringList result = log->texts();
        result.replaceInStrings(
            QRegularExpression(QStringLiteral("^\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3} - ")),
            QStringLiteral("NOW - "));
        return result;
    }

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
            QStringLiteral("NOW - Download request for '%1'").arg(url(path)),
            QStringLiteral("Rw-remount the usb drive"),
            QStringLiteral("RemountUSB \"rw\""),
            QStringLiteral("NOW - File will be saved to '%1'").arg(stick(name)),
            QStringLiteral("NOW - Download complete"),
            QStringLiteral("Ro-remount the usb drive"),
            QStringLiteral("RemountUSB \"ro\""),
        };
    }

    static void press(QDialog* dialog, QDialogButtonBox::StandardButton button)
    {
        QTest::mouseClick(dialog->findChild<QDialogButtonBox*>()->button(button), Qt::LeftButton);
    }

    /// Lets the user press `button` in every chooser from now on, after `before` has happened.
    void answerChooser(QDialogButtonBox::StandardButton button, const std::function<void()>& before = {})
    {
        user->onWaiting(QStringLiteral("FileDialog"), [button, before](QDialog* dialog) {
            if (before) {
                before();
            }
            press(dialog, button);
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
    std::unique_ptr<Varnel::DownloadHandler> handler;
    std::unique_ptr<DialogDriver> user;
    std::unique_ptr<LogRecorder> log;
    QStringList messages;  ///< of the timed popups
    QVector<bool> started; ///< what start() has returned
};

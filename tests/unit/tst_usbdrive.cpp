// SPDX-License-Identifier: MIT
#include "usbdrive.h"

#include <QDialogButtonBox>
#include <QLabel>
#include <QListWidget>
#include <QPushButton>

#include "dialogdriver.h"
#include "literals.h"
#include "rows.h"
#include "usbstick.h"

using namespace Varnel;

class tst_UsbDrive : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        users = std::make_unique<UsbStick>();
        user = std::make_unique<DialogDriver>();
        window = std::make_unique<QWidget>();
        messages.clear();
        user->onWaiting("TimedPopup"_s, [this](QDialog* popup) {
            QCOMPARE(popup->parentWidget(), window.get());
            messages << popup->findChild<QLabel*>()->text();
            popup->close();
        });
    }

    void cleanup()
    {
        QVERIFY(users->remounts().isEmpty()); // an upload only reads
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QVERIFY(!window || window->findChildren<QDialog*>().isEmpty());
        window.reset();
        user.reset();
        users.reset();
    }

    void mounted()
    {
        QVERIFY(isUsbDriveMounted());
        users->pull();
        QVERIFY(!isUsbDriveMounted());
        QVERIFY(QDir().rmdir(users->path()));
        QVERIFY(!isUsbDriveMounted());
        users->plug();
        QVERIFY(!isUsbDriveMounted()); // the directory is missing
    }

    void chooseWithoutDrive()
    {
        users->pull();
        QCOMPARE(chooseUploadFile(window.get()), QString());
        QCOMPARE(user->seen(), QStringList("TimedPopup"_s));
        QCOMPARE(messages, QStringList("USB drive not detected."_s));
    }

    void chooseFile_data()
    {
        const Rows<QString> row("name");
        row("plain", "firmware.bin"_s);
        row("blanks and percent", "a %1 b.bin"_s);
        row("a colon in front", ":a.bin"_s);
        row("newline", "a\nb.bin"_s);
        row("right to left", QString(QChar(0x202e) + "gpj.exe"_s));
    }

    void chooseFile()
    {
        QFETCH(QString, name);
        users->put(name, "octets");
        user->onWaiting("FileDialog"_s, [this](QDialog* dialog) {
            QCOMPARE(dialog->parentWidget(), window.get());
            QCOMPARE(dialog->windowTitle(), "Upload"_s);
            QVERIFY(dialog->isModal());
            auto* const list = dialog->findChild<QListWidget*>();
            QTest::mouseClick(list->viewport(), Qt::LeftButton, {},
                              list->visualItemRect(list->item(0)).center());
            press(dialog, QDialogButtonBox::Ok);
        });
        const QString path = chooseUploadFile(window.get());
        QCOMPARE(path, users->path(name));
        QVERIFY(QFileInfo(path).isFile());
        QVERIFY(messages.isEmpty());
    }

    void chooseCancelled()
    {
        users->put("a.txt"_s, {});
        user->onWaiting("FileDialog"_s, [](QDialog* dialog) {
            dialog->findChild<QListWidget*>()->setCurrentRow(0);
            press(dialog, QDialogButtonBox::Cancel);
        });
        QCOMPARE(chooseUploadFile(window.get()), QString());
        QVERIFY(messages.isEmpty());
    }

    void chooseNothing()
    {
        for (const int files : {0, 1}) {
            user->onWaiting("FileDialog"_s, [files](QDialog* dialog) {
                QCOMPARE(dialog->findChild<QListWidget*>()->count(), files);
                press(dialog, QDialogButtonBox::Ok);
            });
            QCOMPARE(chooseUploadFile(window.get()), QString());
            QCOMPARE(user->seen().mid(2 * files), "FileDialog TimedPopup"_words);
            QCOMPARE(messages.value(files), "No file has been selected."_s);
            users->put("a.txt"_s, {});
        }
    }

    void choosePulledMeanwhile()
    {
        users->put("a.txt"_s, {});
        user->onWaiting("FileDialog"_s, [this](QDialog* dialog) {
            users->pull();
            QVERIFY(QFile::remove(users->path("a.txt"_s)));
            dialog->findChild<QListWidget*>()->setCurrentRow(0);
            press(dialog, QDialogButtonBox::Ok);
        });
        // The page learns by itself that there is nothing to read.
        QCOMPARE(chooseUploadFile(window.get()), users->path("a.txt"_s));
    }

    void chooseWhileParentDies()
    {
        user->onWaiting("FileDialog"_s, [this](QDialog*) { window.reset(); });
        QCOMPARE(chooseUploadFile(window.get()), QString());
        QVERIFY(!window);
    }

    void chooseWhileApplicationQuits()
    {
        users->put("a.txt"_s, {});
        user->onWaiting("FileDialog"_s, [](QDialog* dialog) {
            dialog->findChild<QListWidget*>()->setCurrentRow(0);
            QCoreApplication::quit();
        });
        QString path = "unset"_s;
        QTimer::singleShot(0, window.get(), [&] { path = chooseUploadFile(window.get()); });
        QCOMPARE(QCoreApplication::exec(), 0);
        QCOMPARE(path, QString());
    }

private:
    static void press(QDialog* dialog, QDialogButtonBox::StandardButton button)
    {
        QTest::mouseClick(dialog->findChild<QDialogButtonBox*>()->button(button), Qt::LeftButton);
    }

    std::unique_ptr<UsbStick> users;
    std::unique_ptr<DialogDriver> user;
    std::unique_ptr<QWidget> window;
    QStringList messages;
};

QTEST_MAIN(tst_UsbDrive)
#include "tst_usbdrive.moc"

// SPDX-License-Identifier: MIT
#include "usbdrive.h"

#include <QDialogButtonBox>
#include <QLabel>
#include <QListWidget>
#include <QPushButton>
#include <QTest>

#include "dialogdriver.h"
#include "usbstick.h"

using namespace Varnel;

class tst_UsbDrive : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void mounted_data();
    void mounted();
    void chooseWithoutDrive();
    void chooseFile_data();
    void chooseFile();
    void chooseCancelled();
    void chooseNothing();
    void chooseOnEmptyDrive();
    void choosePulledMeanwhile();
    void chooseWhileParentDies();
    void chooseWhileApplicationQuits();

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

void tst_UsbDrive::init()
{
    users = std::make_unique<UsbStick>();
    user = std::make_unique<DialogDriver>();
    window = std::make_unique<QWidget>();
    messages.clear();
    user->onWaiting(QStringLiteral("TimedPopup"), [this](QDialog* popup) {
        QCOMPARE(popup->parentWidget(), window.get());
        messages << popup->findChild<QLabel*>()->text();
        popup->close();
    });
}

void tst_UsbDrive::cleanup()
{
    QVERIFY(users->remounts().isEmpty()); // an upload only reads
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QVERIFY(!window || window->findChildren<QDialog*>().isEmpty());
    window.reset();
    user.reset();
    users.reset();
}

void tst_UsbDrive::mounted_data()
{
    QTest::addColumn<bool>("directory");
    QTest::addColumn<bool>("marker");
    QTest::addColumn<bool>("mounted");

    QTest::newRow("directory and marker: mounted") << true << true << true;
    QTest::newRow("directory alone: not mounted") << true << false << false;
    QTest::newRow("marker alone: not mounted") << false << true << false;
    QTest::newRow("neither: not mounted") << false << false << false;
}

void tst_UsbDrive::mounted()
{
    QFETCH(bool, directory);
    QFETCH(bool, marker);
    if (!directory) {
        QVERIFY(QDir().rmdir(users->path()));
    }
    if (!marker) {
        users->pull();
    }
    QTEST(isUsbDriveMounted(), "mounted");
}

void tst_UsbDrive::chooseWithoutDrive()
{
    users->pull();
    QCOMPARE(chooseUploadFile(window.get()), QString());
    QCOMPARE(user->seen(), QStringList(QStringLiteral("TimedPopup")));
    QCOMPARE(messages, QStringList(QStringLiteral("USB drive not detected.")));
}

void tst_UsbDrive::chooseFile_data()
{
    QTest::addColumn<QString>("name");

    QTest::newRow("plain") << QStringLiteral("firmware.bin");
    QTest::newRow("blanks and percent") << QStringLiteral("a %1 b.bin");
    QTest::newRow("a colon in front") << QStringLiteral(":a.bin");
    QTest::newRow("newline") << QStringLiteral("a\nb.bin");
    QTest::newRow("right to left") << QString(QChar(0x202e) + QStringLiteral("gpj.exe"));
}

void tst_UsbDrive::chooseFile()
{
    QFETCH(QString, name);
    users->put(name, "octets");
    user->onWaiting(QStringLiteral("FileDialog"), [this](QDialog* dialog) {
        QCOMPARE(dialog->parentWidget(), window.get());
        QCOMPARE(dialog->windowTitle(), QStringLiteral("Upload"));
        QVERIFY(dialog->isModal());
        auto* const list = dialog->findChild<QListWidget*>();
        QTest::mouseClick(list->viewport(), Qt::LeftButton, {}, list->visualItemRect(list->item(0)).center());
        press(dialog, QDialogButtonBox::Ok);
    });
    const QString path = chooseUploadFile(window.get());
    QCOMPARE(path, users->path(name));
    QVERIFY(QFileInfo(path).isFile());
    QVERIFY(messages.isEmpty());
}

void tst_UsbDrive::chooseCancelled()
{
    users->put(QStringLiteral("a.txt"), {});
    user->onWaiting(QStringLiteral("FileDialog"), [](QDialog* dialog) {
        dialog->findChild<QListWidget*>()->setCurrentRow(0);
        press(dialog, QDialogButtonBox::Cancel);
    });
    QCOMPARE(chooseUploadFile(window.get()), QString());
    QVERIFY(messages.isEmpty());
}

void tst_UsbDrive::chooseNothing()
{
    users->put(QStringLiteral("a.txt"), {});
    user->onWaiting(QStringLiteral("FileDialog"),
                    [](QDialog* dialog) { press(dialog, QDialogButtonBox::Ok); });
    QCOMPARE(chooseUploadFile(window.get()), QString());
    QCOMPARE(messages, QStringList(QStringLiteral("No file has been selected.")));
}

void tst_UsbDrive::chooseOnEmptyDrive()
{
    user->onWaiting(QStringLiteral("FileDialog"), [](QDialog* dialog) {
        QCOMPARE(dialog->findChild<QListWidget*>()->count(), 0);
        press(dialog, QDialogButtonBox::Ok);
    });
    QCOMPARE(chooseUploadFile(window.get()), QString());
    QCOMPARE(user->seen(), QStringList({QStringLiteral("FileDialog"), QStringLiteral("TimedPopup")}));
    QCOMPARE(messages, QStringList(QStringLiteral("No file has been selected.")));
}

void tst_UsbDrive::choosePulledMeanwhile()
{
    users->put(QStringLiteral("a.txt"), {});
    user->onWaiting(QStringLiteral("FileDialog"), [this](QDialog* dialog) {
        users->pull();
        QVERIFY(QFile::remove(users->path(QStringLiteral("a.txt"))));
        dialog->findChild<QListWidget*>()->setCurrentRow(0);
        press(dialog, QDialogButtonBox::Ok);
    });
    // The page learns by itself that there is nothing to read.
    QCOMPARE(chooseUploadFile(window.get()), users->path(QStringLiteral("a.txt")));
}

void tst_UsbDrive::chooseWhileParentDies()
{
    user->onWaiting(QStringLiteral("FileDialog"), [this](QDialog*) { window.reset(); });
    QCOMPARE(chooseUploadFile(window.get()), QString());
    QVERIFY(!window);
}

void tst_UsbDrive::chooseWhileApplicationQuits()
{
    users->put(QStringLiteral("a.txt"), {});
    user->onWaiting(QStringLiteral("FileDialog"), [](QDialog* dialog) {
        dialog->findChild<QListWidget*>()->setCurrentRow(0);
        QCoreApplication::quit();
    });
    QString path = QStringLiteral("unset");
    QTimer::singleShot(0, window.get(), [&] { path = chooseUploadFile(window.get()); });
    QCOMPARE(QCoreApplication::exec(), 0);
    QCOMPARE(path, QString());
}

QTEST_MAIN(tst_UsbDrive)
#include "tst_usbdrive.moc"

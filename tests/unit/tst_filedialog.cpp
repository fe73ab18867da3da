// SPDX-License-Identifier: MIT
#include "filedialog.h"

#include <QDialogButtonBox>
#include <QLabel>
#include <QListWidget>
#include <QPushButton>
#include <QScrollBar>
#include <QSignalSpy>
#include <QTest>

#include "logrecorder.h"
#include "screensaver.h"
#include "usbstick.h"

Q_DECLARE_METATYPE(QDialogButtonBox::StandardButton)

using Varnel::FileDialog;
using Varnel::ScreenSaver;

class tst_FileDialog : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void form();
    void window_data();
    void window();
    void textsFromSettings();
    void listsRegularFilesByName();
    void listsThousandsOfFiles();
    void listsOddNames();
    void listsNothingWithoutDirectory();
    void scrollBarsFitFingers();
    void downloadShowsItsName_data();
    void downloadShowsItsName();
    void downloadSelectsNothing();
    void uploadPicksTouchedFile();
    void uploadPicksLastTouchedFile();
    void uploadWithoutTouchPicksNothing();
    void buttonsAnswer_data();
    void buttonsAnswer();
    void touchesKeepScreenAwake();

private:
    static QListWidget* list(const QWidget& dialog)
    {
        return dialog.findChild<QListWidget*>(QStringLiteral("listFiles"));
    }
    static QLabel* label(const QWidget& dialog, const char* name)
    {
        return dialog.findChild<QLabel*>(QString::fromLatin1(name));
    }
    static QStringList listed(const QWidget& dialog)
    {
        QStringList names;
        for (int row = 0; row < list(dialog)->count(); ++row) {
            names << list(dialog)->item(row)->text();
        }
        return names;
    }
    static void touch(const QWidget& dialog, int row)
    {
        const QRect place = list(dialog)->visualItemRect(list(dialog)->item(row));
        QTest::mouseClick(list(dialog)->viewport(), Qt::LeftButton, {}, place.center());
    }

    std::unique_ptr<UsbStick> users;
};

void tst_FileDialog::init()
{
    users = std::make_unique<UsbStick>();
}

void tst_FileDialog::cleanup()
{
    users.reset();
}

void tst_FileDialog::form()
{
    const FileDialog dialog(false, {}, nullptr);
    QCOMPARE(dialog.objectName(), QStringLiteral("FileDialog"));
    QCOMPARE(dialog.size(), QSize(512, 328));

    QCOMPARE(label(dialog, "lblFile")->geometry(), QRect(10, 10, 181, 41));
    QCOMPARE(label(dialog, "lblFile")->font().pointSize(), 28);
    QCOMPARE(label(dialog, "lblFileValue")->geometry(), QRect(180, 10, 321, 41));
    QCOMPARE(label(dialog, "lblFileValue")->font().pointSize(), 28);
    QCOMPARE(list(dialog)->geometry(), QRect(10, 60, 491, 221));
    QCOMPARE(list(dialog)->font().pointSize(), 28);

    const auto* const buttons = dialog.findChild<QDialogButtonBox*>(QStringLiteral("buttonBox"));
    QVERIFY(buttons);
    QCOMPARE(buttons->geometry(), QRect(10, 291, 491, 31));
    QCOMPARE(buttons->font().pointSize(), 18);
    QCOMPARE(buttons->orientation(), Qt::Horizontal);
    QCOMPARE(buttons->standardButtons(),
             QDialogButtonBox::StandardButtons(QDialogButtonBox::Ok | QDialogButtonBox::Cancel));
    QCOMPARE(buttons->sizePolicy().horizontalPolicy(), QSizePolicy::Expanding);
    QCOMPARE(buttons->sizePolicy().verticalPolicy(), QSizePolicy::Expanding);
    QCOMPARE(buttons->sizePolicy().horizontalStretch(), 0);
    QCOMPARE(buttons->sizePolicy().verticalStretch(), 1);
}

void tst_FileDialog::window_data()
{
    QTest::addColumn<bool>("download");
    QTest::addColumn<QString>("title");
    QTest::addColumn<QAbstractItemView::SelectionMode>("selection");

    QTest::newRow("download") << true << QStringLiteral("Download") << QAbstractItemView::NoSelection;
    QTest::newRow("upload") << false << QStringLiteral("Upload") << QAbstractItemView::SingleSelection;
}

void tst_FileDialog::window()
{
    QFETCH(bool, download);
    QWidget parent;
    const FileDialog dialog(download, {}, &parent);
    QCOMPARE(dialog.parentWidget(), &parent);
    QTEST(dialog.windowTitle(), "title");
    QTEST(list(dialog)->selectionMode(), "selection");
    QCOMPARE(dialog.windowType(), Qt::SplashScreen);
    QVERIFY(dialog.isWindow());
    QCOMPARE(dialog.minimumSize(), QSize(512, 328));
    QCOMPARE(dialog.maximumSize(), QSize(512, 328));
    QVERIFY(dialog.hasMouseTracking());
}

void tst_FileDialog::textsFromSettings()
{
    const ScopedSetting<QString> file("UI", "TextFilename", QStringLiteral("Datei:"));
    const ScopedSetting<QString> upload("UI", "TextUpload", QStringLiteral("Hochladen"));
    const ScopedSetting<QString> ok("UI", "TextOK", QStringLiteral("Gut"));
    const ScopedSetting<QString> cancel("UI", "TextCancel", QStringLiteral("Abbrechen"));
    const FileDialog dialog(false, {}, nullptr);
    QCOMPARE(label(dialog, "lblFile")->text(), QStringLiteral("Datei:"));
    QCOMPARE(dialog.windowTitle(), QStringLiteral("Hochladen"));
    const auto* const buttons = dialog.findChild<QDialogButtonBox*>();
    QCOMPARE(buttons->button(QDialogButtonBox::Ok)->text(), QStringLiteral("Gut"));
    QCOMPARE(buttons->button(QDialogButtonBox::Cancel)->text(), QStringLiteral("Abbrechen"));
}

void tst_FileDialog::listsRegularFilesByName()
{
    for (const char* const name : {"b.txt", "C.txt", "a.txt", ".hidden", "10.txt", "9.txt"}) {
        users->put(QString::fromLatin1(name), {});
    }
    QVERIFY(QDir(users->path()).mkdir(QStringLiteral("directory")));
    QVERIFY(
        QFile::link(users->path(QStringLiteral("directory")), users->path(QStringLiteral("to-directory"))));
    const QStringList expected{QStringLiteral("10.txt"), QStringLiteral("9.txt"), QStringLiteral("C.txt"),
                               QStringLiteral("a.txt"), QStringLiteral("b.txt")};
    QCOMPARE(listed(FileDialog(false, {}, nullptr)), expected);
    QCOMPARE(listed(FileDialog(true, QStringLiteral("new"), nullptr)), expected);
}

void tst_FileDialog::listsThousandsOfFiles()
{
    for (int n = 0; n < 3000; ++n) {
        users->put(QStringLiteral("log-%1.txt").arg(n, 4, 10, QLatin1Char('0')), {});
    }
    FileDialog dialog(false, {}, nullptr);
    dialog.show();
    QCOMPARE(list(dialog)->count(), 3000);
    list(dialog)->scrollToBottom();
    touch(dialog, 2999);
    QCOMPARE(dialog.getFilename(), QStringLiteral("log-2999.txt"));
}

void tst_FileDialog::listsOddNames()
{
    const QStringList names{
        QStringLiteral("%1%s.txt"),
        QStringLiteral("<b>bold.txt"),
        QStringLiteral("a\nb.txt"),
        QChar(0x202e) + QStringLiteral("gpj.exe"),
        QString::fromUtf8("\xe6\x97\xa5\xe5\xbf\x97.txt"),
    };
    for (const QString& name : names) {
        users->put(name, {});
    }
    FileDialog dialog(false, {}, nullptr);
    dialog.show();
    QCOMPARE(listed(dialog), names);
    for (int row = 0; row < names.size(); ++row) {
        list(dialog)->setCurrentRow(row);
        QCOMPARE(dialog.getFilename(), names.at(row));
        // A name is never taken for markup.
        QCOMPARE(label(dialog, "lblFileValue")->text(), names.at(row));
        QCOMPARE(label(dialog, "lblFileValue")->textFormat(), Qt::PlainText);
    }
}

void tst_FileDialog::listsNothingWithoutDirectory()
{
    QVERIFY(QDir().rmdir(users->path()));
    const FileDialog dialog(false, {}, nullptr);
    QCOMPARE(list(dialog)->count(), 0);
}

void tst_FileDialog::scrollBarsFitFingers()
{
    for (int n = 0; n < 50; ++n) {
        users->put(QStringLiteral("%1").arg(n) + QString(100, QLatin1Char('n')), {});
    }
    FileDialog dialog(false, {}, nullptr);
    const auto sheet = QStringLiteral("QScrollBar:vertical { width: 32; } "
                                      "QScrollBar:handle:vertical { min-height: 32; } "
                                      "QScrollBar:horizontal { height: 32px; } "
                                      "QScrollBar:handle:horizontal { min-width: 32; } ");
    QCOMPARE(list(dialog)->verticalScrollBar()->styleSheet(), sheet);
    QCOMPARE(list(dialog)->horizontalScrollBar()->styleSheet(), sheet);
    dialog.show();
    QVERIFY(list(dialog)->verticalScrollBar()->isVisible());
    QVERIFY(list(dialog)->horizontalScrollBar()->isVisible());
    QCOMPARE(list(dialog)->verticalScrollBar()->width(), 32);
    QCOMPARE(list(dialog)->horizontalScrollBar()->height(), 32);
}

void tst_FileDialog::downloadShowsItsName_data()
{
    QTest::addColumn<QString>("name");

    QTest::newRow("plain") << QStringLiteral("log.txt");
    QTest::newRow("empty") << QString();
    QTest::newRow("markup: unchanged") << QStringLiteral("<img src=x>.txt");
    QTest::newRow("300 characters: not shortened") << QString(300, QLatin1Char('n'));
}

void tst_FileDialog::downloadShowsItsName()
{
    QFETCH(QString, name);
    const FileDialog dialog(true, name, nullptr);
    QCOMPARE(dialog.getFilename(), name);
    QCOMPARE(label(dialog, "lblFileValue")->text(), name);
    QCOMPARE(dialog.size(), QSize(512, 328));
}

void tst_FileDialog::downloadSelectsNothing()
{
    users->put(QStringLiteral("old.txt"), {});
    FileDialog dialog(true, QStringLiteral("new.txt"), nullptr);
    dialog.show();
    touch(dialog, 0);
    QVERIFY(list(dialog)->selectedItems().isEmpty());
    QCOMPARE(dialog.getFilename(), QStringLiteral("new.txt"));
    QCOMPARE(label(dialog, "lblFileValue")->text(), QStringLiteral("new.txt"));

    // Not even a selection that came about in another way changes the name.
    list(dialog)->setSelectionMode(QAbstractItemView::SingleSelection);
    touch(dialog, 0);
    QCOMPARE(list(dialog)->selectedItems().size(), 1);
    QCOMPARE(dialog.getFilename(), QStringLiteral("new.txt"));
}

void tst_FileDialog::uploadPicksTouchedFile()
{
    users->put(QStringLiteral("a.txt"), {});
    users->put(QStringLiteral("b.txt"), {});
    FileDialog dialog(false, {}, nullptr);
    dialog.show();
    QCOMPARE(label(dialog, "lblFileValue")->text(), QString());
    touch(dialog, 1);
    QCOMPARE(dialog.getFilename(), QStringLiteral("b.txt"));
    QCOMPARE(label(dialog, "lblFileValue")->text(), QStringLiteral("b.txt"));
}

void tst_FileDialog::uploadPicksLastTouchedFile()
{
    users->put(QStringLiteral("a.txt"), {});
    users->put(QStringLiteral("b.txt"), {});
    FileDialog dialog(false, {}, nullptr);
    dialog.show();
    touch(dialog, 1);
    touch(dialog, 0);
    QCOMPARE(list(dialog)->selectedItems().size(), 1);
    QCOMPARE(dialog.getFilename(), QStringLiteral("a.txt"));
    list(dialog)->clearSelection(); // what was picked last stays
    QCOMPARE(dialog.getFilename(), QStringLiteral("a.txt"));
}

void tst_FileDialog::uploadWithoutTouchPicksNothing()
{
    users->put(QStringLiteral("a.txt"), {});
    FileDialog dialog(false, {}, nullptr);
    dialog.show();
    QTest::mouseClick(dialog.findChild<QDialogButtonBox*>()->button(QDialogButtonBox::Ok), Qt::LeftButton);
    QCOMPARE(dialog.result(), int(QDialog::Accepted));
    QCOMPARE(dialog.getFilename(), QString());
}

void tst_FileDialog::buttonsAnswer_data()
{
    QTest::addColumn<QDialogButtonBox::StandardButton>("button");
    QTest::addColumn<int>("result");

    QTest::newRow("OK: accepted") << QDialogButtonBox::Ok << int(QDialog::Accepted);
    QTest::newRow("Cancel: rejected") << QDialogButtonBox::Cancel << int(QDialog::Rejected);
}

void tst_FileDialog::buttonsAnswer()
{
    QFETCH(QDialogButtonBox::StandardButton, button);
    FileDialog dialog(true, QStringLiteral("log.txt"), nullptr);
    dialog.show();
    QSignalSpy finished(&dialog, &QDialog::finished);
    QTest::mouseClick(dialog.findChild<QDialogButtonBox*>()->button(button), Qt::LeftButton);
    QCOMPARE(finished.size(), 1);
    QTEST(dialog.result(), "result");
    QVERIFY(!dialog.isVisible());
}

void tst_FileDialog::touchesKeepScreenAwake()
{
    FileDialog dialog(true, QStringLiteral("log.txt"), nullptr);
    dialog.show();
    const LogRecorder log;
    QTest::mousePress(&dialog, Qt::LeftButton, {}, QPoint(5, 5));
    QCOMPARE(log.texts(), QStringList({QStringLiteral("stopBuzzer()"), QStringLiteral("resetTimer")}));

    // In the dark a touch of the dialog wakes the screen.
    ScreenSaver::instance()->activate(false);
    QTest::mouseMove(dialog.windowHandle(), QPoint(6, 6));
    QTRY_VERIFY(ScreenSaver::instance()->active());
}

QTEST_MAIN(tst_FileDialog)
#include "tst_filedialog.moc"

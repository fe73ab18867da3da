// SPDX-License-Identifier: MIT
#include "filedialog.h"

#include <QDialogButtonBox>
#include <QLabel>
#include <QListWidget>
#include <QPushButton>
#include <QScrollBar>
#include <QSignalSpy>

#include "logrecorder.h"
#include "rows.h"
#include "screensaver.h"
#include "usbstick.h"

Q_DECLARE_METATYPE(QDialogButtonBox::StandardButton)

using Varnel::FileDialog;
using Varnel::ScreenSaver;

class tst_FileDialog : public QObject
{
    Q_OBJECT

private slots:
    void init() { users = std::make_unique<UsbStick>(); }
    void cleanup() { users.reset(); }

    void form()
    {
        const FileDialog dialog(false, {}, nullptr);
        QCOMPARE(dialog.objectName(), "FileDialog"_s);
        QCOMPARE(dialog.size(), QSize(512, 328));

        QCOMPARE(label(dialog, "lblFile")->geometry(), QRect(10, 10, 181, 41));
        QCOMPARE(label(dialog, "lblFile")->font().pointSize(), 28);
        QCOMPARE(label(dialog, "lblFileValue")->geometry(), QRect(180, 10, 321, 41));
        QCOMPARE(label(dialog, "lblFileValue")->font().pointSize(), 28);
        QCOMPARE(list(dialog)->geometry(), QRect(10, 60, 491, 221));
        QCOMPARE(list(dialog)->font().pointSize(), 28);

        const auto* const buttons = dialog.findChild<QDialogButtonBox*>("buttonBox"_s);
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

    void window_data()
    {
        const Rows<bool, QString, QAbstractItemView::SelectionMode> row("download", "title", "selection");
        row("download", true, "Download"_s, QAbstractItemView::NoSelection);
        row("upload", false, "Upload"_s, QAbstractItemView::SingleSelection);
    }

    void window()
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

    void textsFromSettings()
    {
        const ScopedSetting<QString> file("UI", "TextFilename", "Datei:"_s);
        const ScopedSetting<QString> upload("UI", "TextUpload", "Hochladen"_s);
        const ScopedSetting<QString> download("UI", "TextDownload", "Sichern"_s);
        const ScopedSetting<QString> ok("UI", "TextOK", "Gut"_s);
        const ScopedSetting<QString> cancel("UI", "TextCancel", "Abbrechen"_s);
        const FileDialog dialog(false, {}, nullptr);
        QCOMPARE(label(dialog, "lblFile")->text(), "Datei:"_s);
        QCOMPARE(dialog.windowTitle(), "Hochladen"_s);
        QCOMPARE(FileDialog(true, {}, nullptr).windowTitle(), "Sichern"_s);
        const auto* const buttons = dialog.findChild<QDialogButtonBox*>();
        QCOMPARE(buttons->button(QDialogButtonBox::Ok)->text(), "Gut"_s);
        QCOMPARE(buttons->button(QDialogButtonBox::Cancel)->text(), "Abbrechen"_s);
    }

    void listsRegularFilesByName()
    {
        for (const char* const name : {"b.txt", "C.txt", "a.txt", ".hidden", "10.txt", "9.txt"}) {
            users->put(QString::fromLatin1(name), {});
        }
        QVERIFY(QDir(users->path()).mkdir("directory"_s));
        QVERIFY(QFile::link(users->path("directory"_s), users->path("to-directory"_s)));
        const QStringList expected{"10.txt"_s, "9.txt"_s, "C.txt"_s, "a.txt"_s, "b.txt"_s};
        QCOMPARE(listed(FileDialog(false, {}, nullptr)), expected);
        QCOMPARE(listed(FileDialog(true, "new"_s, nullptr)), expected);
    }

    void listsThousandsOfFiles()
    {
        for (int n = 0; n < 3000; ++n) {
            users->put("log-%1.txt"_s.arg(n, 4, 10, QLatin1Char('0')), {});
        }
        FileDialog dialog(false, {}, nullptr);
        dialog.show();
        QCOMPARE(list(dialog)->count(), 3000);
        list(dialog)->scrollToBottom();
        touch(dialog, 2999);
        QCOMPARE(dialog.getFilename(), "log-2999.txt"_s);
    }

    void listsOddNames()
    {
        const QStringList names{"%1%s.txt"_s, "<b>bold.txt"_s, "a\nb.txt"_s, QChar(0x202e) + "gpj.exe"_s,
                                "\xe6\x97\xa5\xe5\xbf\x97.txt"_s};
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

    void listsNothingWithoutDirectory()
    {
        QVERIFY(QDir().rmdir(users->path()));
        const FileDialog dialog(false, {}, nullptr);
        QCOMPARE(list(dialog)->count(), 0);
    }

    void scrollBarsFitFingers()
    {
        for (int n = 0; n < 50; ++n) {
            users->put("%1"_s.arg(n) + QString(100, QLatin1Char('n')), {});
        }
        FileDialog dialog(false, {}, nullptr);
        const auto sheet = "QScrollBar:vertical { width: 32; } "
                           "QScrollBar:handle:vertical { min-height: 32; } "
                           "QScrollBar:horizontal { height: 32px; } "
                           "QScrollBar:handle:horizontal { min-width: 32; } "_s;
        QCOMPARE(list(dialog)->verticalScrollBar()->styleSheet(), sheet);
        QCOMPARE(list(dialog)->horizontalScrollBar()->styleSheet(), sheet);
        dialog.show();
        QVERIFY(list(dialog)->verticalScrollBar()->isVisible());
        QVERIFY(list(dialog)->horizontalScrollBar()->isVisible());
        QCOMPARE(list(dialog)->verticalScrollBar()->width(), 32);
        QCOMPARE(list(dialog)->horizontalScrollBar()->height(), 32);
    }

    void downloadShowsItsName_data()
    {
        const Rows<QString> row("name");
        row("plain", "log.txt"_s);
        row("markup: unchanged", "<img src=x>.txt"_s);
        row("300 characters: not shortened", QString(300, QLatin1Char('n')));
    }

    void downloadShowsItsName()
    {
        QFETCH(QString, name);
        users->put("old.txt"_s, {});
        FileDialog dialog(true, name, nullptr);
        QCOMPARE(dialog.getFilename(), name);
        QCOMPARE(label(dialog, "lblFileValue")->text(), name);
        QCOMPARE(dialog.size(), QSize(512, 328));

        dialog.show();
        touch(dialog, 0);
        QVERIFY(list(dialog)->selectedItems().isEmpty());
        // Not even a selection that came about in another way changes the name.
        list(dialog)->setSelectionMode(QAbstractItemView::SingleSelection);
        touch(dialog, 0);
        QCOMPARE(list(dialog)->selectedItems().size(), 1);
        QCOMPARE(dialog.getFilename(), name);
        QCOMPARE(label(dialog, "lblFileValue")->text(), name);
    }

    void uploadPicksTheLastTouchedFile()
    {
        users->put("a.txt"_s, {});
        users->put("b.txt"_s, {});
        FileDialog dialog(false, {}, nullptr);
        dialog.show();
        QCOMPARE(label(dialog, "lblFileValue")->text(), QString());
        touch(dialog, 1);
        QCOMPARE(dialog.getFilename(), "b.txt"_s);
        QCOMPARE(label(dialog, "lblFileValue")->text(), "b.txt"_s);
        touch(dialog, 0);
        QCOMPARE(list(dialog)->selectedItems().size(), 1);
        QCOMPARE(dialog.getFilename(), "a.txt"_s);
        list(dialog)->clearSelection(); // what was picked last stays
        QCOMPARE(dialog.getFilename(), "a.txt"_s);
    }

    void buttonsAnswer_data()
    {
        const Rows<QDialogButtonBox::StandardButton, int> row("button", "result");
        row("OK: accepted", QDialogButtonBox::Ok, int(QDialog::Accepted));
        row("Cancel: rejected", QDialogButtonBox::Cancel, int(QDialog::Rejected));
    }

    void buttonsAnswer()
    {
        QFETCH(QDialogButtonBox::StandardButton, button);
        users->put("a.txt"_s, {});
        FileDialog dialog(false, {}, nullptr);
        dialog.show();
        QSignalSpy finished(&dialog, &QDialog::finished);
        QTest::mouseClick(dialog.findChild<QDialogButtonBox*>()->button(button), Qt::LeftButton);
        QCOMPARE(finished.size(), 1);
        QTEST(dialog.result(), "result");
        QVERIFY(!dialog.isVisible());
        QCOMPARE(dialog.getFilename(), QString()); // nothing was touched
    }

    void touchesKeepScreenAwake()
    {
        FileDialog dialog(true, "log.txt"_s, nullptr);
        dialog.show();
        const LogRecorder log;
        QTest::mousePress(&dialog, Qt::LeftButton, {}, QPoint(5, 5));
        QCOMPARE(log.texts(), QStringList({"stopBuzzer()"_s, "resetTimer"_s}));

        // In the dark a touch of the dialog wakes the screen.
        ScreenSaver::instance()->activate(false);
        QTest::mouseMove(dialog.windowHandle(), QPoint(6, 6));
        QTRY_VERIFY(ScreenSaver::instance()->active());
    }

private:
    static QListWidget* list(const QWidget& dialog) { return dialog.findChild<QListWidget*>("listFiles"_s); }

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

QTEST_MAIN(tst_FileDialog)
#include "tst_filedialog.moc"

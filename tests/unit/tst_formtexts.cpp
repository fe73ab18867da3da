// SPDX-License-Identifier: MIT
// With the font and the resolution that the panel's unit chooses, every text of the panel's forms fits its
// place.

#include <QApplication>
#include <QFile>
#include <QFontInfo>
#include <QLabel>
#include <QPushButton>
#include <QRegularExpression>
#include <QStyleOptionButton>
#include <QTest>

#include "filedialog.h"
#include "literals.h"
#include "mainwindow.h"
#include "progresspopup.h"
#include "settings.h"
#include "timedpopup.h"

using namespace Varnel;

namespace {

/// The room of the panel's screen.
constexpr QSize screen(800, 480);

/// Sets what the unit sets, with the font choice that it installs.
bool takeEnvironmentOfTheUnit()
{
    QFile unit(QFINDTESTDATA("../../device/systemd/varnel-browser.service.in"));
    const QRegularExpression line(
        "^Environment=QT_FONT_DPI=(\\d+) FONTCONFIG_FILE=.*/varnel-browser/fonts.conf$"_s,
        QRegularExpression::MultilineOption);
    if (!unit.open(QIODevice::ReadOnly)) {
        return false;
    }
    const QRegularExpressionMatch match = line.match(QString::fromUtf8(unit.readAll()));
    qputenv("QT_FONT_DPI", match.captured(1).toLatin1());
    qputenv("FONTCONFIG_FILE", QFINDTESTDATA("../../device/fonts.conf").toLocal8Bit());
    return match.hasMatch();
}

/// The place of the label's text as it is drawn.
QRect drawnPlace(const QLabel* label)
{
    const int flags = int(label->alignment()) | (label->wordWrap() ? Qt::TextWordWrap : 0);
    const QFontMetrics metrics = label->fontMetrics();
    QRect place = metrics.boundingRect(label->contentsRect(), flags, label->text());
    if (!label->wordWrap()) {
        // A single line needs room only for its visible pixels.
        const QRect ink = metrics.tightBoundingRect(label->text());
        place.setTop(place.top() + metrics.ascent() + ink.top());
        place.setHeight(ink.height());
    }
    return place;
}

bool fits(const QLabel* label)
{
    const QRect place = drawnPlace(label);
    const bool inside = !label->text().isEmpty() && label->contentsRect().contains(place);
    if (!inside) {
        qWarning() << label->text() << place << "in" << label->contentsRect();
    }
    return inside;
}

} // namespace

class tst_FormTexts : public QObject
{
    Q_OBJECT

private slots:
    void fontOfTheUnit()
    {
        const QString expected = "Liberation Sans"_s;
        QCOMPARE(QFontInfo(QApplication::font()).family(), expected);
        QCOMPARE(QFontInfo(QFont("Sans Serif"_s)).family(), expected);  // the default on a desktop
        QVERIFY(QFontInfo(QFont("sans-serif"_s)).family() != expected); // a page's is the system's
    }

    void chooser()
    {
        FileDialog dialog(true, "report.pdf"_s, nullptr);
        dialog.show();
        const auto* const label = dialog.findChild<QLabel*>("lblFile"_s);
        const auto* const name = dialog.findChild<QLabel*>("lblFileValue"_s);
        QVERIFY(fits(label));
        QVERIFY(fits(name));
        QVERIFY(label->x() + drawnPlace(label).right() < name->x() + drawnPlace(name).left());
        const auto buttons = dialog.findChildren<QPushButton*>();
        QCOMPARE(buttons.size(), 2);
        for (const QPushButton* button : buttons) {
            QStyleOptionButton option;
            option.initFrom(button);
            const QRect room =
                button->style()->subElementRect(QStyle::SE_PushButtonContents, &option, button);
            const QRect ink = button->fontMetrics().tightBoundingRect(button->text());
            QVERIFY2(ink.width() <= room.width() && ink.height() <= room.height(),
                     qPrintable(button->text()));
        }
    }

    void popups()
    {
        for (const QString& text :
             {Settings::getUIMsgUSBDriveNotMounted(), Settings::getUIMsgFailedToOpenFile(),
              Settings::getUIMsgNoFileSelected(), Settings::getUIMsgDownloadComplete()}) {
            TimedPopup popup(text, nullptr);
            popup.show();
            QVERIFY(fits(popup.findChild<QLabel*>("lblMsg"_s)));
        }
        ProgressPopup popup(Settings::getUIMsgDownloadInProgress(), nullptr);
        popup.show();
        QVERIFY(fits(popup.findChild<QLabel*>("lblTitle"_s)));
    }

    void waiting()
    {
        MainWindow window;
        window.resize(screen);
        window.show();
        auto* const label = window.findChild<QLabel*>("lblProgress"_s);
        QTRY_COMPARE(label->size(), screen);
        for (const QString& text :
             {Settings::getUIMsgWaitingForNetworkConfiguration(), Settings::getUIMsgConnecting()}) {
            label->setText(text);
            QVERIFY(fits(label));
        }
    }
};

int main(int argc, char* argv[])
{
    if (!takeEnvironmentOfTheUnit()) {
        qFatal("the unit does not say which font and resolution it takes");
    }
    QApplication application(argc, argv);
    tst_FormTexts test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_formtexts.moc"

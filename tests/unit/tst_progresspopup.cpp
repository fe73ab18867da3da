// SPDX-License-Identifier: MIT
#include "literals.h"
#include "progresspopup.h"

#include <QImage>
#include <QLabel>
#include <QProgressBar>
#include <QTest>

using Varnel::ProgressPopup;

class tst_ProgressPopup : public QObject
{
    Q_OBJECT

private slots:
    void form()
    {
        QWidget parent;
        const ProgressPopup popup("Download in progress"_s, &parent);
        QCOMPARE(popup.parentWidget(), &parent);
        QVERIFY(popup.isModal());
        QVERIFY(!popup.isVisible());
        QCOMPARE(popup.windowType(), Qt::Dialog);
        QVERIFY(popup.windowFlags().testFlag(Qt::FramelessWindowHint));
        QCOMPARE(popup.objectName(), "ProgressPopup"_s);
        QCOMPARE(popup.size(), QSize(408, 114));
        QCOMPARE(popup.windowTitle(), "Dialog"_s);

        const auto* const title = popup.findChild<QLabel*>("lblTitle"_s);
        QVERIFY(title);
        QCOMPARE(title->geometry(), QRect(20, 10, 371, 31));
        QCOMPARE(title->font().pointSize(), 18);
        QCOMPARE(title->text(), "Download in progress"_s);

        QVERIFY(bar(popup));
        QCOMPARE(bar(popup)->geometry(), QRect(20, 60, 371, 41));
        QVERIFY(!bar(popup)->isTextVisible());
        QCOMPARE(bar(popup)->value(), 0);
        QCOMPARE(bar(popup)->minimum(), 0);
        QCOMPARE(bar(popup)->maximum(), 100);
    }

    void setProgress()
    {
        ProgressPopup popup("title"_s, nullptr);
        for (const int percent : {0, 1, 100, 42}) {
            popup.setProgress(percent);
            QCOMPARE(bar(popup)->value(), percent);
        }
        popup.setProgress(-50); // ignored
        popup.setProgress(101);
        QCOMPARE(bar(popup)->value(), 42);
    }

    void barFillsWithoutText()
    {
        ProgressPopup popup("title"_s, nullptr);
        popup.show();
        const QImage empty = bar(popup)->grab().toImage();
        popup.setProgress(50);
        const int half = filled(popup, empty);
        QVERIFY2(qAbs(half - empty.width() / 2) < 10, qPrintable(QString::number(half)));
        popup.setProgress(100);
        const int full = filled(popup, empty);
        QVERIFY2(full > empty.width() - 10, qPrintable(QString::number(full)));

        // A percentage would be in the middle: the columns of the full bar's middle are all alike.
        const QImage picture = bar(popup)->grab().toImage();
        const int middle = picture.width() / 2;
        for (int x = middle - 20; x < middle + 20; ++x) {
            for (int y = 0; y < picture.height(); ++y) {
                QCOMPARE(picture.pixel(x, y), picture.pixel(middle, y));
            }
        }
    }

private:
    static QProgressBar* bar(const QWidget& popup) { return popup.findChild<QProgressBar*>("progressBar"_s); }

    /// How many of the pixels along the middle of the bar differ from those of an empty bar.
    static int filled(const ProgressPopup& popup, const QImage& empty)
    {
        const QImage picture = bar(popup)->grab().toImage();
        int count = 0;
        for (int x = 0; x < picture.width(); ++x) {
            count += picture.pixel(x, picture.height() / 2) != empty.pixel(x, empty.height() / 2) ? 1 : 0;
        }
        return count;
    }
};

QTEST_MAIN(tst_ProgressPopup)
#include "tst_progresspopup.moc"

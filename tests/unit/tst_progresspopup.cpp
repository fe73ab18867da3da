// SPDX-License-Identifier: MIT
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
    void form();
    void window();
    void setProgress_data();
    void setProgress();
    void barFillsWithoutText();

private:
    static QProgressBar* bar(const QWidget& popup)
    {
        return popup.findChild<QProgressBar*>(QStringLiteral("progressBar"));
    }

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

void tst_ProgressPopup::form()
{
    const ProgressPopup popup(QStringLiteral("Download in progress"), nullptr);
    QCOMPARE(popup.objectName(), QStringLiteral("ProgressPopup"));
    QCOMPARE(popup.size(), QSize(408, 114));
    QCOMPARE(popup.windowTitle(), QStringLiteral("Dialog"));

    const auto* const title = popup.findChild<QLabel*>(QStringLiteral("lblTitle"));
    QVERIFY(title);
    QCOMPARE(title->geometry(), QRect(20, 10, 371, 31));
    QCOMPARE(title->font().pointSize(), 18);
    QCOMPARE(title->text(), QStringLiteral("Download in progress"));

    QVERIFY(bar(popup));
    QCOMPARE(bar(popup)->geometry(), QRect(20, 60, 371, 41));
    QVERIFY(!bar(popup)->isTextVisible());
    QCOMPARE(bar(popup)->value(), 0);
    QCOMPARE(bar(popup)->minimum(), 0);
    QCOMPARE(bar(popup)->maximum(), 100);
}

void tst_ProgressPopup::window()
{
    QWidget parent;
    const ProgressPopup popup(QStringLiteral("title"), &parent);
    QCOMPARE(popup.parentWidget(), &parent);
    QVERIFY(popup.isModal());
    QVERIFY(!popup.isVisible());
    QCOMPARE(popup.windowType(), Qt::Dialog);
    QVERIFY(popup.windowFlags().testFlag(Qt::FramelessWindowHint));
}

void tst_ProgressPopup::setProgress_data()
{
    QTest::addColumn<int>("percent");
    QTest::addColumn<int>("value");

    QTest::newRow("0: empty") << 0 << 0;
    QTest::newRow("1") << 1 << 1;
    QTest::newRow("100: full") << 100 << 100;
    QTest::newRow("negative: ignored") << -50 << 42;
    QTest::newRow("above 100: ignored") << 101 << 42;
}

void tst_ProgressPopup::setProgress()
{
    QFETCH(int, percent);
    ProgressPopup popup(QStringLiteral("title"), nullptr);
    popup.setProgress(42);
    popup.setProgress(percent);
    QTEST(bar(popup)->value(), "value");
}

void tst_ProgressPopup::barFillsWithoutText()
{
    ProgressPopup popup(QStringLiteral("title"), nullptr);
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

QTEST_MAIN(tst_ProgressPopup)
#include "tst_progresspopup.moc"

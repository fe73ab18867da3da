// SPDX-License-Identifier: MIT
#include "timedpopup.h"

#include <QElapsedTimer>
#include <QImage>
#include <QLabel>
#include <QPointer>
#include <QSignalSpy>
#include <QTimer>

#include "dialogdriver.h"
#include "literals.h"
#include "rows.h"

using Varnel::TimedPopup;

class tst_TimedPopup : public QObject
{
    Q_OBJECT

private slots:
    void form()
    {
        QWidget parent;
        const TimedPopup popup("USB drive not detected."_s, &parent);
        QCOMPARE(popup.parentWidget(), &parent);
        QVERIFY(popup.isModal());
        QVERIFY(!popup.isVisible());
        QCOMPARE(popup.windowType(), Qt::Dialog);
        QVERIFY(popup.windowFlags().testFlag(Qt::FramelessWindowHint));
        QCOMPARE(popup.objectName(), "TimedPopup"_s);
        QCOMPARE(popup.size(), QSize(400, 91));
        QCOMPARE(popup.windowTitle(), QString());
        QCOMPARE(popup.findChildren<QWidget*>().size(), 1);

        const QLabel* const message = label(popup);
        QVERIFY(message);
        QCOMPARE(message->geometry(), QRect(10, 10, 381, 71));
        QCOMPARE(message->font().pointSize(), 18);
        QCOMPARE(message->alignment(), Qt::Alignment(Qt::AlignHCenter | Qt::AlignVCenter));
        QVERIFY(message->wordWrap());
        QVERIFY(!message->autoFillBackground());
        QCOMPARE(message->text(), "USB drive not detected."_s);
    }

    void closesAfterThreeSeconds()
    {
        QCOMPARE(int(TimedPopup::DefaultDuration), 3000);
        QElapsedTimer time;
        time.start();
        TimedPopup popup("text"_s, nullptr);
        QSignalSpy finished(&popup, &QDialog::finished);
        popup.show();
        QVERIFY(finished.wait(10000));
        QVERIFY2(time.elapsed() >= 3000, qPrintable(QString::number(time.elapsed())));
        QVERIFY(!popup.isVisible());
    }

    void timeRunsFromConstruction()
    {
        QElapsedTimer sinceBuilt;
        sinceBuilt.start();
        TimedPopup popup(1000, "text"_s, nullptr);
        QSignalSpy finished(&popup, &QDialog::finished);

        QElapsedTimer sinceShown;
        QTimer::singleShot(600, &popup, [&] {
            popup.show();
            sinceShown.start();
        });
        QVERIFY(finished.wait(TimedPopup::DefaultDuration - 500)); // well before the default
        QVERIFY(sinceBuilt.elapsed() >= 1000);
        QVERIFY(sinceShown.elapsed() < 950); // seen for less time than its duration
        QVERIFY(!popup.isVisible());
    }

    void closingDoesNotDelete()
    {
        const QPointer<TimedPopup> popup = new TimedPopup(1, "text"_s, nullptr);
        popup->show();
        QTRY_VERIFY(!popup->isVisible());
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QVERIFY(popup);
        popup->deleteLater();
        QTRY_VERIFY(!popup);
    }

    void longMessageStaysInside_data()
    {
        const Rows<QString, bool> row("message", "wraps");
        row("short: one line", "Download complete"_s, false);
        row("long: two lines", "The file could not be saved on the drive"_s, true);
    }

    void longMessageStaysInside()
    {
        QFETCH(QString, message);
        const TimedPopup popup(message, nullptr);
        QLabel* const text = label(popup);

        // The box around all that is not background, in the picture of the label.
        const QImage picture = text->grab().toImage();
        const QRgb background = picture.pixel(0, 0);
        QRect ink;
        for (int y = 0; y < picture.height(); ++y) {
            for (int x = 0; x < picture.width(); ++x) {
                if (picture.pixel(x, y) != background) {
                    ink |= QRect(x, y, 1, 1);
                }
            }
        }
        QVERIFY(!ink.isEmpty());
        QVERIFY2(picture.rect().adjusted(1, 1, -1, -1).contains(ink), "the text is cut off");
        const int lineHeight = text->fontMetrics().height();
        QTEST(ink.height() > lineHeight, "wraps");
        QVERIFY(qAbs(ink.center().x() - picture.rect().center().x()) <= 3);
        QVERIFY(qAbs(ink.center().y() - picture.rect().center().y()) <= lineHeight / 4);
    }

    void runReturnsWhenClosed()
    {
        QWidget parent;
        DialogDriver user;
        QString message;
        user.onWaiting("TimedPopup"_s, [&](QDialog* popup) {
            QCOMPARE(popup->parentWidget(), &parent);
            message = label(*popup)->text();
            popup->close();
        });
        TimedPopup::run("text"_s, &parent);
        QCOMPARE(message, "text"_s);
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QVERIFY(!parent.findChild<TimedPopup*>());
    }

    void runReturnsWhenClosedWhileBeingShown()
    {
        DialogDriver user;
        user.onShown("TimedPopup"_s, [](QDialog* popup) { popup->close(); });
        TimedPopup::run("text"_s, nullptr);
        QCOMPARE(user.seen(), QStringList("TimedPopup"_s));
    }

    void runReturnsWhenParentDies()
    {
        auto parent = std::make_unique<QWidget>();
        DialogDriver user;
        user.onWaiting("TimedPopup"_s, [&](QDialog*) { parent.reset(); });
        TimedPopup::run("text"_s, parent.get());
        QVERIFY(!parent);
    }

private:
    static QLabel* label(const QWidget& popup) { return popup.findChild<QLabel*>("lblMsg"_s); }
};

QTEST_MAIN(tst_TimedPopup)
#include "tst_timedpopup.moc"

// SPDX-License-Identifier: MIT
#include "boardwindow.h"

#include <chrono>

#include <QLabel>
#include <QListWidget>
#include <QPainter>
#include <QVBoxLayout>

namespace Board {

namespace {

constexpr int cellWidth = 110; // width of one output, pixels
constexpr int cellHeight = 120;
constexpr int listLimit = 500;
constexpr std::chrono::milliseconds period{50};

struct Look
{
    const char* name;
    QRgb lit;
    QRgb dark;
};

constexpr Look looks[] = {
    {"green", 0xff22dd44, 0xff123818},
    {"yellow", 0xffffd020, 0xff40360e},
    {"red", 0xffff3020, 0xff40120e},
    {"buzzer", 0xff40a0ff, 0xff14283c},
};

QString levelText(const BoardLine& output)
{
    if (!output.exported) {
        return QStringLiteral("not exported");
    }
    if (!output.driven) {
        return QStringLiteral("input");
    }
    return output.on != output.activeLow ? QStringLiteral("line high") : QStringLiteral("line low");
}

void paintOutput(QPainter& painter, const QRect& area, const Look& look, const BoardLine& output)
{
    const bool lit = output.on && output.driven;
    painter.setPen(QPen(QColor(0x80, 0x80, 0x80), 2));
    painter.setBrush(QColor(lit ? look.lit : look.dark));
    painter.drawEllipse(QRect(area.center().x() - 26, area.top() + 10, 52, 52));
    painter.setPen(Qt::white);
    painter.drawText(area.adjusted(0, 70, 0, 0), Qt::AlignHCenter | Qt::AlignTop,
                     QLatin1String(look.name) + QLatin1Char('\n') + levelText(output));
}

} // namespace

OutputPainter::OutputPainter(QWidget* parent)
    : QWidget(parent)
    , outputs(static_cast<int>(std::size(looks)))
{
    setMinimumSize(sizeHint());
}

void OutputPainter::setOutputs(const QVector<BoardLine>& values)
{
    outputs = values;
    update();
}

QSize OutputPainter::sizeHint() const
{
    return {cellWidth * static_cast<int>(std::size(looks)), cellHeight};
}

void OutputPainter::paintEvent(QPaintEvent* /*event*/)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.fillRect(rect(), QColor(0x20, 0x20, 0x20));
    for (int i = 0; i < outputs.size() && i < static_cast<int>(std::size(looks)); ++i) {
        paintOutput(painter, QRect(i * cellWidth, 0, cellWidth, cellHeight), looks[i], outputs.at(i));
    }
}

BoardWindow::BoardWindow(const BoardLines& outputs, const ScriptRuns& scripts, QWidget* parent)
    : QWidget(parent)
    , outputs(outputs)
    , scripts(scripts)
    , painter(new OutputPainter(this))
    , runs(new QListWidget(this))
{
    setWindowTitle(QStringLiteral("Panel board: LEDs, buzzer, scripts"));
    auto* const layout = new QVBoxLayout(this);
    layout->addWidget(painter);
    layout->addWidget(new QLabel(QStringLiteral("Scripts that the panel ran:"), this));
    layout->addWidget(runs);
    runs->setSelectionMode(QAbstractItemView::NoSelection);
    connect(&timer, &QTimer::timeout, this, &BoardWindow::refresh);
    timer.start(period);
    refresh();
}

void BoardWindow::refresh()
{
    if (outputs.refresh()) {
        painter->setOutputs(outputs.current());
    }
    const QStringList added = scripts.added();
    for (const QString& run : added) {
        runs->addItem(run);
    }
    while (runs->count() > listLimit) {
        delete runs->takeItem(0);
    }
    if (!added.isEmpty()) {
        runs->scrollToBottom();
    }
}

} // namespace Board

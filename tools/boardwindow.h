// SPDX-License-Identifier: MIT
#pragma once

#include <QTimer>
#include <QWidget>

#include "boardlines.h"

class QListWidget;

namespace Board {

/// Draws three LEDs and a buzzer.
class OutputPainter final : public QWidget
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(OutputPainter)

public:
    explicit OutputPainter(QWidget* parent = nullptr);

    /// Green, yellow and red LED, buzzer.
    void setOutputs(const QVector<BoardLine>& values);
    QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    QVector<BoardLine> outputs;
};

/// The board beside the panel: LEDs and buzzer, and the list of the scripts that the panel ran.
class BoardWindow : public QWidget
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(BoardWindow)

public:
    /// Reads both sources 20 times a second, five times for each phase of the fastest blinking.
    BoardWindow(const BoardLines& outputs, const ScriptRuns& scripts, QWidget* parent = nullptr);

private:
    void refresh();

    BoardLines outputs;
    ScriptRuns scripts;
    OutputPainter* painter;
    QListWidget* runs;
    QTimer timer;
};

} // namespace Board

// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>

#include "rlprecords.h"

namespace Varnel {

/// The panel's three status LEDs and its buzzer, on GPIO lines of the kernel's sysfs interface: which line
/// each one has, its command and the phase of its blinking.
class Outputs
{
public:
    /// How often blinkFast() and blinkSlow() are to be called.
    static constexpr std::chrono::milliseconds fastBlinkPeriod{250};
    static constexpr std::chrono::milliseconds slowBlinkPeriod{1000};

    /// Prepares one line as an output with the given active level, and exports it if necessary.
    static void initializeLine(quint8 pin, bool high);
    /// Switches one line on (any value but 0) or off. A line that does not exist is ignored.
    static void switchLine(quint8 pin, quint8 value);
    /// Prepares the four lines: green, yellow, red, buzzer.
    static void initializeLines();

    /// Prepares the lines and shows the waiting pattern until the first frame: the LEDs blink slowly, the
    /// buzzer is off.
    void start();
    /// The pattern after a link loss: the LEDs blink fast, the buzzer keeps its command.
    void showLoss();
    /// Applies the controller's commands. An output that starts to blink is lit first.
    void apply(const gpiostate_s& gpiostate);

    /// Inverts every output that blinks fast or slowly.
    void blinkFast();
    void blinkSlow();

private:
    void lightLeds(quint8 command);
    void toggle(quint8 command);

    gpiostate_s last_gpiostate;  ///< the current command of each output
    gpiostate_s blink_gpiostate; ///< the current phase of each output: 0 dark, 1 lit
};

} // namespace Varnel

// SPDX-License-Identifier: MIT
// The sysfs interface is described in Documentation/ABI/obsolete/sysfs-gpio of the Linux kernel.
#include "outputs.h"

#include <QDir>
#include <QFile>
#include <QtDebug>

#include "helpers.h"
#include "settings.h"

namespace Varnel {

namespace {

constexpr quint8 commandOff = 0;
constexpr quint8 commandOn = 1;
constexpr quint8 commandSlowBlink = 2;
constexpr quint8 commandFastBlink = 3;

/// One output: its place in the records and its settings. The line numbers of this board have 8 bits.
struct Output
{
    quint8 gpiostate_s::*state;
    quint32 (*pinSetting)();
    bool (*high)();

    [[nodiscard]] quint8 pin() const { return static_cast<quint8>(pinSetting()); }
};

constexpr Output leds[] = {
    {&gpiostate_s::good, &Settings::getGPIOLedGreenPin, &Settings::getGPIOLedGreenHigh},
    {&gpiostate_s::warning, &Settings::getGPIOLedYellowPin, &Settings::getGPIOLedYellowHigh},
    {&gpiostate_s::critical, &Settings::getGPIOLedRedPin, &Settings::getGPIOLedRedHigh},
};
constexpr Output buzzer = {&gpiostate_s::buzzer, &Settings::getGPIOBuzzerPin, &Settings::getGPIOBuzzerHigh};
constexpr Output outputs[] = {leds[0], leds[1], leds[2], buzzer};

} // namespace

void Outputs::initializeLine(quint8 pin, bool high)
{
    const QString directory = QStringLiteral("/sys/class/gpio/gpio%1").arg(pin);
    if (!QDir(directory).exists()) {
        Helpers::echo(QStringLiteral("/sys/class/gpio/export"), pin);
    }
    const QString direction = directory + QLatin1String("/direction");
    if (QFile::exists(direction)) {
        Helpers::echo(direction, QStringLiteral("out"));
    }
    const QString activeLow = directory + QLatin1String("/active_low");
    if (QFile::exists(activeLow)) {
        Helpers::echo(activeLow, high ? 0 : 1);
    }
}

void Outputs::switchLine(quint8 pin, quint8 value)
{
    const QString file = QStringLiteral("/sys/class/gpio/gpio%1/value").arg(pin);
    if (QFile::exists(file)) {
        Helpers::echo(file, value != 0 ? 1 : 0);
    }
}

void Outputs::initializeLines()
{
    for (const Output& output : outputs) {
        initializeLine(output.pin(), output.high());
    }
}

void Outputs::start()
{
    qDebug() << "Initialize GPIOs";
    initializeLines();
    qDebug() << "All LEDs on, Buzzer off";
    lightLeds(commandSlowBlink);
    switchLine(buzzer.pin(), commandOff);
    last_gpiostate.buzzer = commandOff;
    blink_gpiostate.buzzer = 0;
}

void Outputs::showLoss()
{
    lightLeds(commandFastBlink);
}

/// Switches the LEDs on and gives them `command`.
void Outputs::lightLeds(quint8 command)
{
    for (const Output& led : leds) {
        switchLine(led.pin(), commandOn);
        last_gpiostate.*led.state = command;
        blink_gpiostate.*led.state = 1;
    }
}

void Outputs::apply(const gpiostate_s& gpiostate)
{
    for (const Output& output : outputs) {
        const quint8 command = gpiostate.*output.state;
        if (command != last_gpiostate.*output.state) {
            initializeLine(output.pin(), output.high());
            switchLine(output.pin(), command);
            blink_gpiostate.*output.state = command != commandOff ? 1 : 0;
        }
        if (command == commandOff || command == commandOn) {
            // Every frame writes it, which repairs an output that another program has changed.
            switchLine(output.pin(), command);
            blink_gpiostate.*output.state = command;
        }
    }
    last_gpiostate = gpiostate;
}

void Outputs::toggle(quint8 command)
{
    for (const Output& output : outputs) {
        if (last_gpiostate.*output.state == command) {
            quint8& phase = blink_gpiostate.*output.state;
            phase = phase != 0 ? 0 : 1;
            switchLine(output.pin(), phase);
        }
    }
}

void Outputs::blinkFast()
{
    toggle(commandFastBlink);
}

void Outputs::blinkSlow()
{
    toggle(commandSlowBlink);
}

} // namespace Varnel

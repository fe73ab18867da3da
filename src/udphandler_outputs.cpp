// SPDX-License-Identifier: MIT
// UdpHandler's LEDs and buzzer: the commands of the controller on GPIO lines of the kernel's sysfs interface
// (Documentation/ABI/obsolete/sysfs-gpio of the Linux kernel).
#include "udphandler.h"

#include <chrono>

#include <QDir>
#include <QFile>
#include <QTimer>
#include <QtDebug>

#include "helpers.h"
#include "settings.h"

namespace Varnel {

namespace {

using namespace std::chrono_literals;

constexpr auto fastBlinkPeriod = 250ms;
constexpr auto slowBlinkPeriod = 1000ms;

constexpr quint8 commandOff = 0;
constexpr quint8 commandOn = 1;
constexpr quint8 commandSlowBlink = 2;
constexpr quint8 commandFastBlink = 3;

/// One output: its place in the records and its settings. The kernel's lines of this board have 8-bit
/// numbers.
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

void UdpHandler::initializeGPIO(quint8 pin, bool high)
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

void UdpHandler::handleGPIO(quint8 pin, quint8 value)
{
    const QString file = QStringLiteral("/sys/class/gpio/gpio%1/value").arg(pin);
    if (QFile::exists(file)) {
        Helpers::echo(file, value != 0 ? 1 : 0);
    }
}

void UdpHandler::initializeGPIOs()
{
    for (const Output& output : outputs) {
        initializeGPIO(output.pin(), output.high());
    }
}

void UdpHandler::startOutputs()
{
    qDebug() << "Initialize GPIOs";
    initializeGPIOs();
    qDebug() << "All LEDs on, Buzzer off";
    for (const Output& led : leds) {
        handleGPIO(led.pin(), commandOn);
        last_gpiostate.*led.state = commandSlowBlink;
        blink_gpiostate.*led.state = 1;
    }
    handleGPIO(buzzer.pin(), commandOff);
    last_gpiostate.buzzer = commandOff;
    blink_gpiostate.buzzer = 0;
    blinkFastTimer->start(fastBlinkPeriod);
    blinkSlowTimer->start(slowBlinkPeriod);
}

void UdpHandler::startLossPattern()
{
    for (const Output& led : leds) {
        handleGPIO(led.pin(), commandOn);
        last_gpiostate.*led.state = commandFastBlink;
        blink_gpiostate.*led.state = 1;
    }
}

void UdpHandler::applyGpioState(const gpiostate_s& gpiostate)
{
    for (const Output& output : outputs) {
        const quint8 command = gpiostate.*output.state;
        if (command != last_gpiostate.*output.state) {
            initializeGPIO(output.pin(), output.high());
            handleGPIO(output.pin(), command);
            blink_gpiostate.*output.state = command != commandOff ? 1 : 0;
        }
        if (command == commandOff || command == commandOn) {
            // Written with every frame: this repairs an output that was changed behind the panel's back.
            handleGPIO(output.pin(), command);
            blink_gpiostate.*output.state = command;
        }
    }
    last_gpiostate = gpiostate;
}

void UdpHandler::toggle(quint8 command)
{
    for (const Output& output : outputs) {
        if (last_gpiostate.*output.state == command) {
            quint8& phase = blink_gpiostate.*output.state;
            phase = phase != 0 ? 0 : 1;
            handleGPIO(output.pin(), phase);
        }
    }
}

void UdpHandler::blinkFastTimeout()
{
    toggle(commandFastBlink);
}

void UdpHandler::blinkSlowTimeout()
{
    toggle(commandSlowBlink);
}

} // namespace Varnel

// SPDX-License-Identifier: MIT
#include "blink.h"

#include <QDir>
#include <QFile>

namespace VarnelCheck {

namespace {

struct Output
{
    const char* name;
    const char* pin;
    const char* polarity;
};

constexpr Output outputs[] = {
    {"green LED", "LedGreenPin", "LedGreenHigh"},
    {"yellow LED", "LedYellowPin", "LedYellowHigh"},
    {"red LED", "LedRedPin", "LedRedHigh"},
    {"buzzer", "BuzzerPin", "BuzzerHigh"},
};

bool write(const QString& path, const QByteArray& value)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(value) == value.size() && file.flush();
}

/// The line's directory after its export; empty if the kernel refuses it.
QString prepare(const PanelFiles& panel, const Output& output)
{
    const QByteArray number = QByteArray::number(panel.number("GPIO", output.pin) & 255);
    const QString line = panel.path(QStringLiteral("/sys/class/gpio/gpio") + QString::fromLatin1(number));
    if (!QDir(line).exists()) {
        write(panel.path(QStringLiteral("/sys/class/gpio/export")), number);
    }
    const bool isHigh = panel.text("GPIO", output.polarity) == QLatin1String("true");
    return write(line + QLatin1String("/direction"), "out") &&
                   write(line + QLatin1String("/active_low"), isHigh ? "0" : "1")
               ? line
               : QString();
}

} // namespace

bool blinkOutputs(const PanelFiles& panel, QTextStream& in, QTextStream& out)
{
    bool isGood = true;
    for (const Output& output : outputs) {
        const QString line = prepare(panel, output);
        if (line.isEmpty() || !write(line + QLatin1String("/value"), "1")) {
            out << output.name << ": cannot write to line " << (panel.number("GPIO", output.pin) & 255)
                << "; run this as root, and see the section \"outputs\"" << Qt::endl;
            isGood = false;
            continue;
        }
        out << output.name << " is on now. Is it? [y/n] " << Qt::flush;
        const bool isSeen = in.readLine().trimmed().toLower().startsWith(QLatin1Char('y'));
        write(line + QLatin1String("/value"), "0");
        if (!isSeen) {
            out << "  -> wrong line: change " << output.pin << "; lit when it should be off: change "
                << output.polarity << Qt::endl;
        }
        isGood = isGood && isSeen;
    }
    return isGood;
}

} // namespace VarnelCheck

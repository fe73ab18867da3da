// SPDX-License-Identifier: MIT
#include "commandline.h"

namespace Varnel {

namespace {

/// One option: a flag without a value, or one that takes the next argument as its value.
struct Option
{
    const char* flag;
    const char* longName;
    const char* valueName; ///< null for a flag
    const char* description;
    bool CommandLine::*present;
    QString CommandLine::*value; ///< null for a flag
};

constexpr Option options[] = {
    {"-v", nullptr, nullptr, "Verbose", &CommandLine::verbose, nullptr},
    {"-D", nullptr, "device", "Device description", &CommandLine::hasDevice, &CommandLine::device},
    {"-R", nullptr, "release", "Release number", &CommandLine::hasRelease, &CommandLine::release},
    {"-h", "--help", nullptr, "Print this help.", &CommandLine::help, nullptr},
};

const Option* find(const QString& word)
{
    for (const Option& option : options) {
        if (word == QLatin1String(option.flag) ||
            (option.longName != nullptr && word == QLatin1String(option.longName))) {
            return &option;
        }
    }
    return nullptr;
}

/// The option as the help writes it: "-D <device>", "-h, --help".
QString spelling(const Option& option)
{
    QString text = QLatin1String(option.flag);
    if (option.longName != nullptr) {
        text += QLatin1String(", ") + QLatin1String(option.longName);
    }
    if (option.valueName != nullptr) {
        text += QLatin1String(" <") + QLatin1String(option.valueName) + QLatin1Char('>');
    }
    return text;
}

} // namespace

CommandLine CommandLine::parse(const QStringList& arguments)
{
    CommandLine result;
    for (int i = 0; i < arguments.size(); ++i) {
        const Option* const option = find(arguments.at(i));
        if (option == nullptr) {
            result.error = QLatin1String("Unknown argument: ") + arguments.at(i);
            return result;
        }
        if (option->value != nullptr) {
            // An option in the value's place is far more likely a forgotten value than a device named "-R".
            if (i + 1 == arguments.size() || find(arguments.at(i + 1)) != nullptr) {
                result.error = QLatin1String("Not defined value of the argument: ") + arguments.at(i);
                return result;
            }
            result.*option->value = arguments.at(++i);
        }
        result.*option->present = true;
        if (result.help) {
            return result;
        }
    }
    return result;
}

QString CommandLine::helpText(const QString& executable)
{
    constexpr int column = 20;
    QString usage = QLatin1String("Usage: ") + executable;
    QString list;
    for (const Option& option : options) {
        usage += QLatin1String(" [") + spelling(option) + QLatin1Char(']');
        list += QLatin1String("  ") + spelling(option).leftJustified(column) +
                QLatin1String(option.description) + QLatin1Char('\n');
    }
    return usage + QLatin1String("\n\nDescription: Main application of VARNEL\n\nOptional arguments:\n") +
           list;
}

} // namespace Varnel

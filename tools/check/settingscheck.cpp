// SPDX-License-Identifier: MIT
#include "settingscheck.h"

#include <algorithm>
#include <limits>
#include <numeric>
#include <optional>

#include <QFileInfo>
#include <QSet>
#include <QStringList>

namespace VarnelCheck {

namespace {

using Severity = Finding::Severity;

/// A line "key = value" of the file.
struct Assignment
{
    QString where;
    QString group;
    QString name;
    QString value;
};

const Key* findKey(const QString& group, const QString& name)
{
    const auto& keys = knownKeys();
    const auto found = std::find_if(keys.begin(), keys.end(),
                                    [&](const Key& key) { return key.group == group && key.name == name; });
    return found == keys.end() ? nullptr : &*found;
}

QStringList knownNames()
{
    QStringList names;
    for (const Key& key : knownKeys()) {
        names.append(key.name);
    }
    return names;
}

QStringList knownGroups()
{
    QStringList groups;
    for (const Key& key : knownKeys()) {
        groups.append(key.group);
    }
    groups.removeDuplicates();
    return groups;
}

/// The group to which a misplaced key belongs; the letter case may differ.
QString groupOf(const QString& name)
{
    for (const Key& key : knownKeys()) {
        if (key.name.compare(name, Qt::CaseInsensitive) == 0) {
            return key.group;
        }
    }
    return {};
}

Finding unknownKey(const Assignment& line)
{
    const QString why = QStringLiteral("The panel ignores the line and uses the default.");
    if (line.name.startsWith(QLatin1Char('#'))) {
        return {Severity::Warning, line.where, QStringLiteral("\"#\" does not start a comment"),
                QStringLiteral("The panel takes the line for a key and ignores it."),
                QStringLiteral("Start the line with \";\".")};
    }
    for (const Key& key : knownKeys()) {
        if (key.group == line.group && key.name.compare(line.name, Qt::CaseInsensitive) == 0) {
            return {Severity::Error, line.where,
                    QStringLiteral("%1 is written in the wrong letter case").arg(line.name), why,
                    QStringLiteral("Write %1.").arg(key.name)};
        }
    }
    if (const QString group = groupOf(line.name); !group.isEmpty()) {
        return {Severity::Error, line.where,
                QStringLiteral("%1 is in the wrong group, [%2]").arg(line.name, line.group), why,
                QStringLiteral("Move the line to [%1].").arg(group)};
    }
    const QString near = nearestName(line.name, knownNames());
    return {Severity::Error, line.where, QStringLiteral("unknown key %1").arg(line.name), why,
            near.isEmpty() ? QStringLiteral("Remove the line; man 5 varnel-browser.ini lists the keys.")
                           : QStringLiteral("Write %1 in [%2].").arg(near, groupOf(near))};
}

struct Range
{
    qint64 least;
    quint64 most;
};

std::optional<Range> rangeOf(Kind kind)
{
    switch (kind) {
    case Kind::Unsigned16:
        return Range{0, std::numeric_limits<quint16>::max()};
    case Kind::Unsigned32:
        return Range{0, std::numeric_limits<quint32>::max()};
    case Kind::Unsigned64:
        return Range{0, std::numeric_limits<quint64>::max()};
    case Kind::Signed32:
        return Range{std::numeric_limits<qint32>::min(), quint64(std::numeric_limits<qint32>::max())};
    case Kind::Text:
    case Kind::Flag:
        break;
    }
    return std::nullopt;
}

std::optional<Finding> checkNumber(const Assignment& line, Range range)
{
    bool isSigned = false;
    bool isUnsigned = false;
    const qint64 asSigned = line.value.toLongLong(&isSigned);
    const quint64 asUnsigned = line.value.toULongLong(&isUnsigned);
    if (!isSigned && !isUnsigned) {
        return Finding{Severity::Error, line.where,
                       QStringLiteral("%1 is not a decimal number: \"%2\"").arg(line.name, line.value),
                       QStringLiteral("The panel reads it as 0."),
                       QStringLiteral("Write digits only, without a unit.")};
    }
    if ((isSigned && asSigned < range.least) || (isUnsigned && asUnsigned > range.most)) {
        return Finding{Severity::Error, line.where,
                       QStringLiteral("%1 is out of range: %2").arg(line.name, line.value),
                       QStringLiteral("The panel keeps the low bits only, or reads 0."),
                       QStringLiteral("Write a number from %1 to %2.").arg(range.least).arg(range.most)};
    }
    return std::nullopt;
}

std::optional<Finding> checkFlag(const Assignment& line)
{
    static const QStringList words = {QString(), QStringLiteral("0"), QStringLiteral("1"),
                                      QStringLiteral("true"), QStringLiteral("false")};
    if (words.contains(line.value, Qt::CaseInsensitive)) {
        return std::nullopt;
    }
    return Finding{Severity::Warning, line.where,
                   QStringLiteral("%1 is not true or false: \"%2\"").arg(line.name, line.value),
                   QStringLiteral("The panel takes every other word for true, \"no\" and \"off\" included."),
                   QStringLiteral("Write true or false.")};
}

std::optional<Finding> checkText(const Assignment& line)
{
    if (line.value.startsWith(QLatin1Char('"'))) {
        return std::nullopt;
    }
    if (line.value.contains(QLatin1Char(','))) {
        return Finding{Severity::Error, line.where,
                       QStringLiteral("%1 has a comma outside quotes").arg(line.name),
                       QStringLiteral("The panel reads an empty text."),
                       QStringLiteral("Put the value into double quotes.")};
    }
    if (line.value.contains(QLatin1Char(';'))) {
        return Finding{Severity::Error, line.where,
                       QStringLiteral("%1 has a semicolon outside quotes").arg(line.name),
                       QStringLiteral("The panel reads the text before the semicolon only."),
                       QStringLiteral("Put the value into double quotes.")};
    }
    return std::nullopt;
}

/// Numbers that convert, but cannot be meant.
std::optional<Finding> checkMeaning(const Assignment& line)
{
    const bool isPin = line.group == QLatin1String("GPIO") && line.name.endsWith(QLatin1String("Pin"));
    if (isPin && line.value.toUInt() > 255) {
        return Finding{
            Severity::Error, line.where, QStringLiteral("%1 is above 255: %2").arg(line.name, line.value),
            QStringLiteral("The panel uses the low 8 bits, line %1.").arg(line.value.toUInt() & 255),
            QStringLiteral("Let the kernel number this line below 256; see docs/board.md.")};
    }
    const bool mayNotBeZero =
        line.name == QLatin1String("UdpTimeout") || line.name == QLatin1String("UdpPort");
    if (mayNotBeZero && line.value.toUInt() == 0) {
        return Finding{Severity::Error, line.where, QStringLiteral("%1 is 0").arg(line.name),
                       QStringLiteral("The panel loses the controller at once, or never hears it."),
                       QStringLiteral("Remove the line to get the default.")};
    }
    if (line.name == QLatin1String("ErrorImagePath") && line.value.endsWith(QLatin1Char('/'))) {
        return Finding{Severity::Warning, line.where, QStringLiteral("ErrorImagePath ends in a slash"),
                       QStringLiteral("The panel may not find the pictures of its own pages."),
                       QStringLiteral("Remove the slash.")};
    }
    return std::nullopt;
}

std::optional<Finding> checkModbus(const Assignment& line)
{
    if (line.name == QLatin1String("ModbusMode") && line.value.toLower() != QLatin1String("tcp") &&
        line.value.toLower() != QLatin1String("rtu")) {
        return Finding{Severity::Error, line.where, QStringLiteral("ModbusMode is \"%1\"").arg(line.value),
                       QStringLiteral("The panel does not start the Modbus server."),
                       QStringLiteral("Write tcp or rtu.")};
    }
    return std::nullopt;
}

std::optional<Finding> checkValue(const Assignment& line, const Key& key)
{
    if (const auto range = rangeOf(key.kind)) {
        if (auto finding = checkNumber(line, *range)) {
            return finding;
        }
    } else if (key.kind == Kind::Flag) {
        return checkFlag(line);
    } else if (auto finding = checkText(line)) {
        return finding;
    }
    if (auto finding = checkModbus(line)) {
        return finding;
    }
    return checkMeaning(line);
}

/// The number of parts of ModbusInterface depends on the mode, so it is checked with the values in effect.
void checkModbusInterface(const PanelFiles& panel, Findings* findings)
{
    const QString mode = panel.text("ModbusServer", "ModbusMode").toLower();
    const QString value = panel.text("ModbusServer", "ModbusInterface");
    const int parts = value.split(QLatin1Char(':')).size();
    const int wanted = mode == QLatin1String("rtu") ? 4 : 3;
    if ((mode == QLatin1String("tcp") || mode == QLatin1String("rtu")) && parts != wanted) {
        findings->append(
            {Severity::Error, PanelFiles::settingsPath(),
             QStringLiteral("ModbusInterface has %1 parts instead of %2: \"%3\"")
                 .arg(parts)
                 .arg(wanted)
                 .arg(value),
             QStringLiteral("The panel does not start the Modbus server."),
             mode == QLatin1String("rtu")
                 ? QStringLiteral("Write unit:device:baud:format, for example 1:/dev/ttyS1:19200:8N1.")
                 : QStringLiteral("Write address:port:clients, for example 0.0.0.0:502:10.")});
    }
}

void checkAccess(const PanelFiles& panel, Findings* findings)
{
    const QFileInfo file(panel.path(PanelFiles::settingsPath()));
    if (file.permission(QFile::ReadOther) && !panel.text("WebSite", "Password").isEmpty()) {
        findings->append({Severity::Warning, PanelFiles::settingsPath(),
                          QStringLiteral("every user may read the password in the file"),
                          QStringLiteral("The password opens the controller's pages."),
                          QStringLiteral("chmod o-r %1").arg(PanelFiles::settingsPath())});
    }
}

/// Reads the file line by line, as QSettings does for plain lines.
class Reader
{
public:
    Reader(Findings* findings, QString path)
        : findings(findings)
        , path(std::move(path))
    {
    }

    void take(const QByteArray& rawLine)
    {
        ++number;
        const QString line = QString::fromLatin1(rawLine).trimmed();
        if (line.isEmpty() || line.startsWith(QLatin1Char(';'))) {
            return;
        }
        if (line.startsWith(QLatin1Char('['))) {
            takeGroup(line);
        } else if (const int at = line.indexOf(QLatin1Char('=')); at < 0) {
            report(Severity::Error,
                   QStringLiteral("neither a group, a key nor a comment: \"%1\"").arg(line.left(40)),
                   QStringLiteral("The panel ignores the line."),
                   QStringLiteral("Write KEY=VALUE, or start the line with \";\"."));
        } else {
            takeAssignment({where(), group, line.left(at).trimmed(), line.mid(at + 1).trimmed()}, rawLine);
        }
    }

private:
    [[nodiscard]] QString where() const { return path + QLatin1Char(':') + QString::number(number); }

    void report(Severity severity, const QString& what, const QString& why, const QString& fix)
    {
        findings->append({severity, where(), what, why, fix});
    }

    void takeGroup(const QString& line)
    {
        group = line.mid(1, line.indexOf(QLatin1Char(']')) - 1);
        if (!line.endsWith(QLatin1Char(']'))) {
            report(Severity::Error, QStringLiteral("a group without \"]\": \"%1\"").arg(line.left(40)),
                   QStringLiteral("The panel may ignore all keys below."), QStringLiteral("Write [GROUP]."));
        } else if (!knownGroups().contains(group)) {
            const QString near = nearestName(group, knownGroups());
            report(Severity::Error, QStringLiteral("unknown group [%1]").arg(group),
                   QStringLiteral("The panel ignores all keys below."),
                   near.isEmpty()
                       ? QStringLiteral("The groups are %1.").arg(knownGroups().join(QLatin1String(", ")))
                       : QStringLiteral("Write [%1].").arg(near));
        }
    }

    void takeAssignment(const Assignment& line, const QByteArray& rawLine)
    {
        if (!group.isEmpty() && !knownGroups().contains(group)) {
            return; // the group itself is reported
        }
        const Key* const key = findKey(group, line.name);
        if (key == nullptr) {
            findings->append(unknownKey(line));
            return;
        }
        if (seen.contains(group + line.name)) {
            report(Severity::Warning, QStringLiteral("%1 is set twice").arg(line.name),
                   QStringLiteral("The last line counts."), QStringLiteral("Remove one of the lines."));
        }
        seen.insert(group + line.name);
        if (std::any_of(rawLine.begin(), rawLine.end(), [](char octet) { return quint8(octet) > 127; })) {
            report(Severity::Warning, QStringLiteral("%1 has letters beyond ASCII").arg(line.name),
                   QStringLiteral(
                       "The panel reads the file as Latin-1, so other encodings look wrong on the screen."),
                   QStringLiteral("Write such letters as \\x and their hexadecimal code point."));
        }
        if (const auto finding = checkValue(line, *key)) {
            findings->append(*finding);
        }
    }

    Findings* const findings;
    const QString path;
    int number = 0;
    QString group;
    QSet<QString> seen;
};

} // namespace

QString nearestName(const QString& name, const QStringList& known)
{
    QString nearest;
    int least = std::max(2, name.size() / 3) + 1;
    for (const QString& candidate : known) {
        QVector<int> row(candidate.size() + 1);
        std::iota(row.begin(), row.end(), 0);
        for (int i = 1; i <= name.size(); ++i) {
            int diagonal = row[0];
            row[0] = i;
            for (int j = 1; j <= candidate.size(); ++j) {
                const int change = name[i - 1].toLower() == candidate[j - 1].toLower() ? 0 : 1;
                const int here = std::min({row[j] + 1, row[j - 1] + 1, diagonal + change});
                diagonal = row[j];
                row[j] = here;
            }
        }
        if (row.last() < least) {
            least = row.last();
            nearest = candidate;
        }
    }
    return nearest;
}

Findings checkSettings(const PanelFiles& panel)
{
    Findings findings;
    const QString path = PanelFiles::settingsPath();
    const QFileInfo file(panel.path(path));
    if (!file.exists()) {
        return {
            {Severity::Note, path, QStringLiteral("no settings file"),
             QStringLiteral("The panel uses the defaults of all keys."),
             QStringLiteral("cp /usr/share/doc/varnel-browser/examples/varnel-browser.ini %1").arg(path)}};
    }
    if (!file.isFile() || !file.isReadable()) {
        return {{Severity::Error, path, QStringLiteral("the settings file cannot be read"),
                 QStringLiteral("The panel uses the defaults of all keys."),
                 QStringLiteral("chown root:varnel %1 && chmod 0640 %1").arg(path)}};
    }
    const QByteArray text = panel.read(path);
    if (std::any_of(text.begin(), text.end(), [](char octet) { return octet >= 0 && octet < '\t'; })) {
        return {
            {Severity::Error, path, QStringLiteral("the settings file is not a text file"),
             QStringLiteral("The panel uses the defaults of most keys."),
             QStringLiteral("cp /usr/share/doc/varnel-browser/examples/varnel-browser.ini %1").arg(path)}};
    }
    Reader reader(&findings, path);
    const QList<QByteArray> lines = text.split('\n');
    for (const QByteArray& line : lines) {
        reader.take(line);
    }
    checkModbusInterface(panel, &findings);
    checkAccess(panel, &findings);
    return findings;
}

} // namespace VarnelCheck

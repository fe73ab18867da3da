// SPDX-License-Identifier: MIT
// Settings files: what is loaded is what the file's groups and keys say, and nothing else changes.
#include <QCoreApplication>
#include <QJsonObject>
#include <QSettings>
#include <QTemporaryDir>

#include "harness.h"
#include "modbuscommand.h"
#include "settings.h"
#include "settingsaccess.h"

using namespace Varnel;
using fuzz::require;

namespace {

struct Stage
{
    QTemporaryDir directory;
    QHash<QString, QVariant> defaults = settingsNow();
    QString defaultsFile = directory.filePath(QStringLiteral("defaults"));
    int files = 0;
};

Stage* stage = nullptr;

/// The value of a key's text for a setting of this type.
QVariant converted(const QVariant& value, int type)
{
    switch (type) {
    case QMetaType::QString:
        return value.toString();
    case QMetaType::ULongLong:
        return value.toULongLong();
    case QMetaType::UInt:
        return value.toUInt();
    case QMetaType::UShort:
        return QVariant::fromValue(quint16(value.toUInt() % 65536));
    case QMetaType::Int:
        return value.toInt();
    default:
        return value.toBool();
    }
}

/// Group by group, as a reader without the "group/key" form does it.
void compareWithFile(const QString& path)
{
    QSettings file(path, QSettings::IniFormat);
    for (const Settings::Entry& entry : Settings::entries()) {
        file.beginGroup(QLatin1String(entry.group));
        const QString key = QLatin1String(entry.key);
        const QVariant usual = stage->defaults.value(nameOf(entry));
        const QVariant wanted = file.contains(key) ? converted(file.value(key), usual.userType()) : usual;
        file.endGroup();
        require(entry.value() == wanted, "a setting is what its key says, or its default");
    }
}

void compareGetters()
{
    require(byGetters() == settingsNow(), "a getter gives its setting");
}

void checkLogin()
{
    const QByteArray header = Settings::getHttpAuthorizationBytes();
    require(header.startsWith("Basic "), "basic authentication");
    require(QByteArray::fromBase64(header.mid(6), QByteArray::AbortOnBase64DecodingErrors) ==
                Settings::getLogin().toLocal8Bit() + ':' + Settings::getPassword().toLocal8Bit(),
            "the header holds login and password");
}

/// The one setting that is taken apart further.
void checkServerInterface()
{
    QJsonObject interface;
    const QString mode = Settings::getModbusMode().toLower();
    const int parts = Settings::getModbusIntf().count(QLatin1Char(':')) + 1;
    const bool usable =
        (mode == QLatin1String("tcp") && parts == 3) || (mode == QLatin1String("rtu") && parts == 4);
    require(serverInterface(mode, Settings::getModbusIntf(), &interface) == usable,
            "the parts of the interface");
    require(interface.size() == (usable ? parts : 0), "one member for each part");
}

} // namespace

// NOLINTNEXTLINE(readability-non-const-parameter)
extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    fuzz::QuietLog::install();
    new QCoreApplication(*argc, *argv); // lives as long as the process
    stage = new Stage;
    writeSettings(stage->defaultsFile, stage->defaults);
    require(!Settings::load(stage->directory.filePath(QStringLiteral("none"))) &&
                fuzz::QuietLog::lines().size() == 1,
            "a missing file is one line in the log");
    compareGetters();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    fuzz::QuietLog::clear();
    const QByteArray octets(reinterpret_cast<const char*>(data), int(size));
    // A stream of any type that Qt knows, which only a program writes: how Qt reads it is not our subject.
    if (octets.contains("@Variant(") || octets.contains("@DateTime(")) {
        return 0;
    }
    require(Settings::load(stage->defaultsFile), "the defaults are back");
    // Every file has a name of its own: QSettings keeps what it has read by the file's name, size and time.
    const QString path = stage->directory.filePath(QString::number(++stage->files));
    fuzz::writeFile(path, octets);
    require(Settings::load(path), "a file that exists is read");
    require(fuzz::QuietLog::lines().isEmpty(), "bad values are not reported");
    compareWithFile(path);
    compareGetters();
    checkLogin();
    checkServerInterface();
    QFile::remove(path);
    return 0;
}

// SPDX-License-Identifier: MIT
// The names of downloads: from any header and URL, on a drive with any files, a name is refused or makes a
// new file in the drive's directory. Lines of the input: the Content-Disposition, the URL, and the files that
// are there, each with one octet in front that says what it is.
#include <cerrno>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QFile>
#include <QTemporaryDir>
#include <QUrl>

#include "downloadname.h"
#include "harness.h"

using namespace Varnel;
using fuzz::require;
using fuzz::requireSame;

namespace {

constexpr int longestName = 255; // octets, of every file system of a drive

struct Stage
{
    QTemporaryDir directory;
    QString drive = directory.filePath(QStringLiteral("the drive"));
};

Stage* stage = nullptr;

QByteArray path(const QByteArray& name)
{
    return QFile::encodeName(stage->drive) + '/' + name;
}

/// The names in the drive's directory, as the kernel has them.
QList<QByteArray> entries()
{
    QList<QByteArray> result;
    DIR* const directory = ::opendir(QFile::encodeName(stage->drive).constData());
    require(directory != nullptr, "the drive's directory stays");
    while (const dirent* const entry = ::readdir(directory)) {
        const QByteArray name = entry->d_name;
        if (name != "." && name != "..") {
            result << name;
        }
    }
    ::closedir(directory);
    return result;
}

void clearDrive()
{
    for (const QByteArray& name : entries()) {
        if (::unlink(path(name).constData()) != 0) {
            require(::rmdir(path(name).constData()) == 0, "the drive can be cleared");
        }
    }
}

/// Puts a file there, or by its first octet a directory or a link to nowhere.
void put(const QByteArray& line)
{
    const QByteArray name = line.mid(1);
    if (name.isEmpty() || name.contains('/') || name.contains('\0')) {
        return;
    }
    switch (line.at(0) % 8) {
    case 0:
        ::mkdir(path(name).constData(), 0700);
        break;
    case 1:
        std::ignore = ::symlink("nowhere", path(name).constData());
        break;
    default:
        ::close(::open(path(name).constData(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    }
}

bool isBlank(char octet)
{
    return octet == ' ' || (octet >= '\t' && octet <= '\r');
}

/// The header's name for plain ASCII, octet by octet.
QByteArray asciiName(const QByteArray& header)
{
    QByteArray name;
    for (QByteArray part : header.split(';')) {
        while (!part.isEmpty() && isBlank(part.front())) {
            part.remove(0, 1);
        }
        while (!part.isEmpty() && isBlank(part.back())) {
            part.chop(1);
        }
        if (part.startsWith("filename=")) {
            name = part.mid(9);
        }
    }
    return name;
}

bool isAscii(const QByteArray& octets)
{
    return std::all_of(octets.cbegin(), octets.cend(), [](char octet) { return octet >= 0; });
}

/// Saves as the panel does, by the drive's path for the name, and finds exactly one more entry there.
void save(const QString& name)
{
    const QList<QByteArray> before = entries();
    const QString target = pathOnDrive(QDir(stage->drive), name);
    const QByteArray encoded = QFile::encodeName(target);
    requireSame(target, stage->drive + QLatin1Char('/') + name, "the file goes into the drive's directory");
    require(!QFile::encodeName(name).contains('/'), "no separator in the name");
    const int descriptor = ::open(encoded.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (descriptor < 0) {
        require(errno == ENAMETOOLONG && QFile::encodeName(name).size() > longestName,
                "a name is free, unless it is too long for any file system");
        return;
    }
    ::close(descriptor);
    const QList<QByteArray> after = entries();
    require(after.size() == before.size() + 1 && after.contains(QFile::encodeName(name)),
            "one new file, so named");
}

/// One download by this name: the drive then holds a file more.
void download(const QString& name)
{
    const QString free = freeFileName(QDir(stage->drive), name);
    require(staysOnDrive(free) == staysOnDrive(name),
            "a name that leads elsewhere is not made to look better");
    if (staysOnDrive(free)) {
        require(free != QLatin1String(".") && free != QLatin1String(".."),
                "not the directory itself nor its parent");
        save(free);
    } else {
        requireSame(free, name, "a name that leads elsewhere is left as it is");
    }
}

} // namespace

// NOLINTNEXTLINE(readability-non-const-parameter)
extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    qputenv("LC_ALL", "C.UTF-8"); // the panel's
    fuzz::QuietLog::install();
    new QCoreApplication(*argc, *argv); // lives as long as the process
    stage = new Stage;
    require(QDir().mkpath(stage->drive), "the harness can make its directory");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    fuzz::QuietLog::clear();
    fuzz::Input input(data, size);
    const QByteArray header = input.takeUntil('\n');
    const QUrl url = QUrl::fromEncoded(input.takeUntil('\n'));
    for (int count = 0; !input.isEmpty() && count < 20; ++count) {
        const QByteArray line = input.takeUntil('\n');
        if (!line.isEmpty()) {
            put(line);
        }
    }
    const QString given = headerFileName(header);
    if (isAscii(header)) {
        const QByteArray wanted = asciiName(header);
        requireSame(given, QString::fromLatin1(wanted.constData(), wanted.size()),
                    "the last part that begins with filename=");
    }
    const QString name = downloadFileName(header, url);
    require(!name.isEmpty() && (given.isEmpty() || name == given), "the header's name goes before the URL's");
    if (given.isEmpty() && !staysOnDrive(name)) {
        require(!name.contains(QLatin1Char('/')), "the last segment of a path has no separator");
    }
    for (int downloads = 0; downloads < 3; ++downloads) {
        download(name);
    }
    clearDrive();
    return 0;
}

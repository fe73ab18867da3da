// SPDX-License-Identifier: MIT
// The names of downloads: from any header and URL, on a drive with any files, a name is refused or makes a
// new file in the drive's directory. Lines of the input: the Content-Disposition, the URL, and the files that
// are there, each with one octet in front that says what it is.
#include <cerrno>
#include <filesystem>

#include <fcntl.h>
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
const QTemporaryDir* directory = nullptr;

QString drive()
{
    return directory->filePath(QStringLiteral("the drive"));
}

std::size_t countEntries()
{
    const std::filesystem::directory_iterator entries(drive().toStdString());
    return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}

/// Puts a file there, or by its first octet a directory or a link to nowhere.
void put(const QByteArray& line)
{
    const std::filesystem::path path = (drive().toUtf8() + '/' + line.mid(1)).toStdString();
    if (line.size() < 2 || line.contains('/') || line.contains('\0')) {
        return;
    }
    std::error_code ignored;
    switch (line.at(0) % 8) {
    case 0:
        std::filesystem::create_directory(path, ignored);
        break;
    case 1:
        std::filesystem::create_symlink("nowhere", path, ignored);
        break;
    default:
        ::close(::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    }
}

/// The header's name for plain ASCII, octet by octet.
QByteArray asciiName(const QByteArray& header)
{
    QByteArray name;
    for (const QByteArray& part : header.split(';')) {
        if (const QByteArray text = part.trimmed(); text.startsWith("filename=")) {
            name = text.mid(9);
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
    const std::size_t before = countEntries();
    const QString target = pathOnDrive(QDir(drive()), name);
    requireSame(target, drive() + QLatin1Char('/') + name, "the file goes into the drive's directory");
    require(!QFile::encodeName(name).contains('/'), "no separator in the name");
    const int descriptor =
        ::open(QFile::encodeName(target).constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (descriptor < 0) {
        require(errno == ENAMETOOLONG && QFile::encodeName(name).size() > longestName,
                "a name is free, unless it is too long for any file system");
        return;
    }
    ::close(descriptor);
    require(countEntries() == before + 1, "one new file in the drive's directory");
}

/// One download by this name: the drive then holds a file more.
void download(const QString& name)
{
    const QString free = freeFileName(QDir(drive()), name);
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
    directory = new QTemporaryDir;
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    fuzz::QuietLog::clear();
    std::filesystem::remove_all(drive().toStdString());
    std::filesystem::create_directory(drive().toStdString());
    fuzz::Input input(data, size);
    const QByteArray header = input.takeUntil("\n");
    const QUrl url = QUrl::fromEncoded(input.takeUntil("\n"));
    for (int count = 0; !input.isEmpty() && count < 20; ++count) {
        put(input.takeUntil("\n"));
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
    return 0;
}

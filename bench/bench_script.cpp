// SPDX-License-Identifier: MIT
// Starting a script and waiting for its end, against posix_spawn and waitpid: in a small process, and in one
// that has written to as much memory as the panel with its page. Options: --rounds N, --quick.
#include <cstring>

#include <sys/mman.h>

#include <QCoreApplication>
#include <QFile>
#include <QTemporaryDir>

#include "figures.h"
#include "scriptfloor.h"
#include "scriptrunner.h"

using namespace VarnelBench;

namespace {

/// As many pages, in small pieces, as the panel has written to by the time its page is shown.
void growToThePanelsSize()
{
    constexpr std::size_t size = 48U << 20U;
    void* const memory = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) {
        qFatal("no memory");
    }
    ::madvise(memory, size, MADV_NOHUGEPAGE);
    std::memset(memory, 1, size);
}

} // namespace

int main(int argc, char* argv[])
{
    const QCoreApplication application(argc, argv);
    const int rounds = roundsFrom(argc, argv);
    dropLog();
    const QTemporaryDir directory;
    const QString path = writeScript(directory.filePath(QStringLiteral("script.sh")));
    const QByteArray name = QFile::encodeName(path);
    const std::vector<Work> works = {
        {"posix_spawn, waitpid", [&] { spawnAndWait(name, "add"); }},
        {"panel", [&] { Varnel::runScript(path, {QStringLiteral("add")}); }, 1.5},
    };
    printFigure("script start and wait, small process", "us", measureScripts(works, rounds));
    growToThePanelsSize();
    printFigure("script start and wait, process of the panel's size", "us", measureScripts(works, rounds));
    return 0;
}

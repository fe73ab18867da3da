// SPDX-License-Identifier: MIT
#include "boardlines.h"

#include <QDir>
#include <QFile>

namespace Board {

namespace {

QByteArray read(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll().trimmed() : QByteArray();
}

QString quoted(const QByteArray& word)
{
    QString text = QString::fromUtf8(word);
    const bool plain = !text.isEmpty() && !text.contains(QLatin1Char(' ')) &&
                       !text.contains(QLatin1Char('\n')) && !text.contains(QLatin1Char('"'));
    if (plain) {
        return text;
    }
    QString escaped = text;
    escaped.replace(QLatin1Char('"'), QLatin1String("\\\"")).replace(QLatin1Char('\n'), QLatin1String("\\n"));
    return QLatin1Char('"') + escaped + QLatin1Char('"');
}

/// Takes one complete run from the front of `words`; a null text when it is not complete yet.
QString takeRun(QList<QByteArray>& words)
{
    const int count = words.isEmpty() ? 0 : words.first().toInt();
    if (count <= 0 || words.size() <= count) {
        return {};
    }
    words.removeFirst();
    QStringList texts;
    for (int i = 0; i < count; ++i) {
        texts += quoted(words.takeFirst());
    }
    return texts.join(QLatin1Char(' '));
}

} // namespace

BoardLines::BoardLines(QString directory, QVector<int> lines)
    : directory(std::move(directory))
    , lines(std::move(lines))
    , outputs(this->lines.size())
{
}

bool BoardLines::refresh()
{
    QVector<BoardLine> now;
    for (int i = 0; i < lines.size(); ++i) {
        now += readLine(lines.at(i), outputs.at(i));
    }
    const bool changed = now != outputs;
    outputs = now;
    return changed;
}

BoardLine BoardLines::readLine(int line, const BoardLine& before) const
{
    const QString path = directory + QStringLiteral("/gpio%1/").arg(line);
    BoardLine output;
    output.exported = QDir(path).exists();
    output.driven = read(path + QLatin1String("direction")) == "out";
    output.activeLow = read(path + QLatin1String("active_low")) == "1";
    // A plain file can be empty while it is being written; a file of the kernel cannot.
    const QByteArray value = read(path + QLatin1String("value"));
    output.on = output.exported && (value.isEmpty() ? before.on : value != "0");
    return output;
}

ScriptRuns::ScriptRuns(QString file)
    : path(std::move(file))
{
}

QStringList ScriptRuns::added()
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        position = 0;
        return {};
    }
    if (file.size() < position) {
        position = 0;
    }
    file.seek(position);
    QList<QByteArray> words = file.readAll().split('\0');
    qint64 unfinished = words.takeLast().size(); // after the last NUL: nothing, or the start of a word
    QStringList runs;
    for (QString run = takeRun(words); !run.isNull(); run = takeRun(words)) {
        runs += run;
    }
    for (const QByteArray& word : qAsConst(words)) {
        unfinished += word.size() + 1;
    }
    position = file.size() - unfinished;
    return runs;
}

} // namespace Board

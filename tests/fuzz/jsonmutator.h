// SPDX-License-Identifier: MIT
#pragma once

#include <random>

#include <QByteArray>
#include <QJsonValue>
#include <QStringList>

namespace fuzz {

/// Changes JSON texts by their values and members rather than by their octets, so that most of them can still
/// be read.
class JsonMutator
{
public:
    /// `words` are what texts are replaced by.
    JsonMutator(unsigned seed, QStringList words)
        : engine(seed)
        , words(std::move(words))
    {
    }

    /// `text` with a few values changed; `fallback`, changed, where it is not JSON.
    QByteArray mutated(const QByteArray& text, const QByteArray& fallback);

    int below(int limit) { return int(engine() % unsigned(limit)); }
    bool oneIn(int count) { return below(count) == 0; }

private:
    QJsonValue changed(const QJsonValue& value, int depth);
    QJsonValue changedArray(const QJsonValue& value, int depth);
    QJsonValue changedObject(const QJsonValue& value, int depth);
    QJsonValue number();
    QJsonValue anything();

    std::minstd_rand engine;
    QStringList words;
};

} // namespace fuzz

// SPDX-License-Identifier: MIT
#pragma once

#include <utility>
#include <variant>
#include <vector>

#include <QByteArray>
#include <QString>
#include <QVector>

/// The way from the top of a JSON document to one of its values: member names and array indices.
using JsonStep = std::variant<QString, int>;
using JsonPath = QVector<JsonStep>;

/// `path` with one more step.
[[nodiscard]] JsonPath operator/(JsonPath path, const QString& name);
[[nodiscard]] JsonPath operator/(JsonPath path, int index);

/// Finds the lines of the values of a JSON text. Qt's parser keeps no positions, so this reads the text a
/// second time; the parser must have accepted it.
class JsonLocator
{
public:
    /// A member name that its object has more than once.
    struct Duplicate
    {
        int line = 0;
        QString name;
    };

    explicit JsonLocator(const QByteArray& text);

    /// The line, from 1, of the value at `path`; for a member the line of its name. If the path leads
    /// nowhere, the line of the last existing value on it.
    [[nodiscard]] int line(const JsonPath& path) const;

    /// The members that repeat an earlier one of their object, in the order of the text.
    [[nodiscard]] const QVector<Duplicate>& duplicates() const { return repeated; }

    /// The line, from 1, of the byte at `offset`.
    [[nodiscard]] static int lineAt(const QByteArray& text, int offset);

private:
    struct Place
    {
        int line = 0;
        std::vector<std::pair<QString, Place>> members;
        std::vector<Place> elements;
    };

    void skipBlanks();
    bool take(char wanted);
    QString readString();
    void readValue(Place* place, int depth);
    void readObject(Place* place, int depth);
    void readArray(Place* place, int depth);

    const QByteArray text;
    int position = 0;
    int currentLine = 1;
    Place root;
    QVector<Duplicate> repeated;
};

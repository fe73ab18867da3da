// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QString>

class QJsonDocument;

namespace Varnel {

/// The log's form of a whole JSON document: its compact text (members sorted by name) in double quotes, with
/// the log's own escapes, exactly as qDebug() prints the string that the JSON writer gives. `source` is the
/// text from which `document` was parsed: for plain ASCII without escapes and with small whole numbers, which
/// is what mapping files are made of, it is rearranged directly, at a fraction of the writer's cost.
[[nodiscard]] QString quotedJson(const QByteArray& source, const QJsonDocument& document);

} // namespace Varnel

// SPDX-License-Identifier: MIT
#pragma once

#include "httpmessages.h"

#include <vector>

namespace Simulator {

/// One link of the download pages: its header and how its body is sent.
struct Download
{
    const char* path; ///< below /download/
    const char* title;
    QByteArray disposition; ///< value of Content-Disposition; null: no such header
    qint64 size = 2048;
    int paceMs = 0;
    BodyEnd end = BodyEnd::Complete;
};

/// Every kind of download that the site offers.
const std::vector<Download>& downloads();

/// The answer for a path below /download/; status 404 for an unknown one. "custom/NAME" builds one from the
/// query: "disposition", "type", "size" in bytes, "pace" in milliseconds for each 4096 bytes, "break" or
/// "stall" with the number of bytes after which the body ends.
HttpReply downloadReply(const QString& path, const QMap<QString, QString>& query);

} // namespace Simulator

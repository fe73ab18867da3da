// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QJsonArray>
#include <QList>
#include <QMap>
#include <QPair>
#include <QString>

namespace Simulator {

/// The verdict on a request's Authorization header.
enum class Credentials
{
    None,
    Wrong,
    Right
};

/// One HTTP request after its body was received.
struct HttpRequest
{
    QByteArray method;
    QString path; ///< percent escapes decoded, without the query
    QMap<QString, QString> query;
    QByteArray agent;
    Credentials credentials = Credentials::None;
    QJsonArray uploads; ///< one object per received file
};

/// What happens to a body at HttpReply::stopAfter.
enum class BodyEnd
{
    Complete,
    Break,
    Stall
};

/// One HTTP answer, and how slowly or wrongly to send it.
struct HttpReply
{
    int status = 200;
    QList<QPair<QByteArray, QByteArray>> headers;
    QByteArray body;
    qint64 generated = -1; ///< this many bytes of the test pattern instead of `body`
    bool endless = false;  ///< test pattern without end instead of `body`
    bool neverAnswered = false;
    int delayMs = 0; ///< before the head
    int paceMs = 0;  ///< before every `chunk` bytes of the body
    int chunk = 1024;
    BodyEnd end = BodyEnd::Complete;
    qint64 stopAfter = 0;      ///< bytes of the body after which `end` comes, unless Complete
    qint64 claimedLength = -1; ///< Content-Length instead of the true one

    void addHeader(const QByteArray& name, const QByteArray& value)
    {
        headers.append(qMakePair(name, value));
    }

    /// The real size of the body, in bytes.
    [[nodiscard]] qint64 length() const { return generated >= 0 ? generated : body.size(); }
};

/// Byte `position` of the test pattern of generated bodies. Its period is not 256, so that a lost block is
/// noticed.
inline char patternOctet(qint64 position)
{
    return static_cast<char>((position ^ (position >> 8) ^ (position >> 16)) & 0xFF);
}

} // namespace Simulator

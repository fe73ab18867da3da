// SPDX-License-Identifier: MIT
#pragma once

#include "httpmessages.h"
#include "packetparser.h"

#include <QHash>
#include <QMap>
#include <QString>

#include <optional>
#include <vector>

namespace Simulator {

/// The pages of a recorded web site: puts the TCP streams of port 80 together, as far as they are simple, and
/// keeps the answers to GET requests with their times. Its memory is limited, whatever is in a capture.
class RecordedSite
{
public:
    /// Takes one segment of the recording; those of other ports are left out.
    void add(const Segment& segment, qint64 timeUs);

    /// To be called after the last segment: answers that end with their connection are complete now.
    void finish();

    /// True when no answer was found.
    [[nodiscard]] bool isEmpty() const { return pages.isEmpty(); }

    /// The last answer of the recorded controller before `timeUs`, or the first one; nothing for an address
    /// that was never requested. An unknown query gets the answer of its path.
    [[nodiscard]] std::optional<HttpReply> reply(const HttpRequest& request, qint64 timeUs) const;

private:
    /// One direction of a connection, in order.
    struct Stream
    {
        std::optional<quint32> next; ///< sequence number of the next byte
        QByteArray ready;            ///< in order, not used yet
        QMap<quint32, QByteArray> early;
    };

    struct Request
    {
        QByteArray method;
        QString path;
        QMap<QString, QString> query;
    };

    struct Connection
    {
        Stream up;
        Stream down;
        std::vector<Request> requests; ///< not answered yet
        qint64 bodyToSkip = 0;         ///< of a request
        int chunksReadTo = 0;          ///< of the answer in hand; 0: none yet
        QByteArray chunks;
        qint64 usedUs = 0;
        bool isBroken = false;
    };

    struct Page
    {
        qint64 timeUs = 0;
        HttpReply reply;
    };

    static void take(Stream* stream, const Segment& segment);
    Connection& connectionOf(const QString& client, qint64 timeUs);
    static void readRequests(Connection* connection);
    static bool readReply(Connection* connection, bool hasBody, bool isClosed, HttpReply* reply, int* end);
    static bool readChunks(Connection* connection, QByteArray* body, int* end);
    void readReplies(Connection* connection, qint64 timeUs, bool isClosed);
    void keep(const Request& request, HttpReply reply, qint64 timeUs);

    QHash<QString, Connection> connections;
    QMap<QString, std::vector<Page>> pages; ///< by path, and by path and query
    qint64 kept = 0;                        ///< bytes
    int keptPages = 0;
    qint64 lastUs = 0;
};

} // namespace Simulator

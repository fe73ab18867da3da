// SPDX-License-Identifier: MIT
#include "recordedsite.h"

#include <QUrl>
#include <QUrlQuery>

#include <algorithm>
#include <utility>

namespace Simulator {

namespace {

constexpr quint16 httpPort = 80;
constexpr int mostConnections = 64;
constexpr int mostRequests = 64; ///< of one connection, not answered yet
constexpr int mostPages = 10000;
constexpr int longestHead = 64 * 1024;
constexpr int mostEarly = 256; ///< segments that wait for one before them
constexpr qint64 longestBody = qint64(4) * 1024 * 1024;
constexpr qint64 mostKept = qint64(64) * 1024 * 1024;

const QByteArray headEnd = "\r\n\r\n";

using Headers = QList<QPair<QByteArray, QByteArray>>;

/// The header lines after the first line of a head.
Headers readHeaders(const QByteArray& head)
{
    Headers headers;
    const QList<QByteArray> lines = head.split('\n');
    for (int i = 1; i < lines.size(); ++i) {
        const int colon = lines[i].indexOf(':');
        if (colon > 0) {
            headers.append({lines[i].left(colon).trimmed(), lines[i].mid(colon + 1).trimmed()});
        }
    }
    return headers;
}

QByteArray valueOf(const Headers& headers, const char* name)
{
    for (const auto& [key, value] : headers) {
        if (qstricmp(key.constData(), name) == 0) {
            return value;
        }
    }
    return {};
}

/// The value of a length field; -1 when it is not usable.
qint64 lengthOf(const Headers& headers)
{
    bool ok = false;
    const qint64 length = valueOf(headers, "Content-Length").toLongLong(&ok);
    return ok && length >= 0 && length <= longestBody ? length : -1;
}

/// The headers that belong to the recorded connection, or that the server writes itself.
bool isOfConnection(const QByteArray& name)
{
    static const QList<QByteArray> names{"connection",     "keep-alive",       "transfer-encoding",
                                         "content-length", "www-authenticate", "date"};
    return names.contains(name.toLower());
}

QString keyOf(const QString& path, const QMap<QString, QString>& query)
{
    QString key = path + QLatin1Char('?');
    for (auto item = query.begin(); item != query.end(); ++item) {
        key += item.key() + QLatin1Char('=') + item.value() + QLatin1Char('&');
    }
    return key;
}

} // namespace

void RecordedSite::add(const Segment& segment, qint64 timeUs)
{
    const Endpoints& ends = segment.ends;
    const bool isUp = ends.targetPort == httpPort;
    if (!isUp && ends.sourcePort != httpPort) {
        return;
    }
    lastUs = timeUs;
    const QString client = isUp ? QStringLiteral("%1:%2 %3")
                                      .arg(ends.source.toString())
                                      .arg(ends.sourcePort)
                                      .arg(ends.target.toString())
                                : QStringLiteral("%1:%2 %3")
                                      .arg(ends.target.toString())
                                      .arg(ends.targetPort)
                                      .arg(ends.source.toString());
    if (isUp && segment.opens) {
        connections.remove(client); // the port is used again
    }
    Connection& connection = connectionOf(client, timeUs);
    take(isUp ? &connection.up : &connection.down, segment);
    readRequests(&connection);
    readReplies(&connection, timeUs, !isUp && segment.closes);
    if (connection.isBroken || (!isUp && segment.closes)) {
        connections.remove(client);
    }
}

void RecordedSite::finish()
{
    for (Connection& connection : connections) {
        readReplies(&connection, lastUs, true);
    }
    connections.clear();
}

/// Puts a segment into its place: drops data that came before, keeps data that comes too early.
void RecordedSite::take(Stream* stream, const Segment& segment)
{
    const quint32 first = segment.sequence + (segment.opens ? 1 : 0);
    if (!stream->next || segment.opens) {
        *stream = {};
        stream->next = first;
    }
    const bool isDue = qint32(*stream->next - first) >= 0;
    if (!segment.payload.isEmpty() && (isDue || stream->early.size() < mostEarly)) {
        stream->early.insert(first, segment.payload);
    }
    for (bool isMoving = true; isMoving;) {
        isMoving = false;
        for (auto piece = stream->early.begin(); piece != stream->early.end();) {
            const auto overlap = qint32(*stream->next - piece.key());
            if (overlap < 0) {
                ++piece;
                continue;
            }
            const QByteArray fresh = piece->mid(overlap);
            stream->ready += fresh;
            *stream->next += quint32(fresh.size());
            piece = stream->early.erase(piece);
            isMoving = true;
        }
    }
}

void RecordedSite::readRequests(Connection* connection)
{
    QByteArray& octets = connection->up.ready;
    for (;;) {
        const int skipped = int(std::min<qint64>(connection->bodyToSkip, octets.size()));
        octets.remove(0, skipped);
        connection->bodyToSkip -= skipped;
        const int head = octets.indexOf(headEnd);
        if (connection->bodyToSkip > 0 || head < 0) {
            connection->isBroken = connection->isBroken || octets.size() > longestHead;
            return;
        }
        const QByteArray text = octets.left(head);
        octets.remove(0, head + headEnd.size());
        const QList<QByteArray> first = text.left(text.indexOf('\r')).split(' ');
        if (first.size() < 3 || connection->requests.size() >= mostRequests) {
            connection->isBroken = true;
            return;
        }
        connection->bodyToSkip = std::max<qint64>(0, lengthOf(readHeaders(text)));
        const QUrl url = QUrl::fromEncoded(first[1].startsWith('/') ? "http://x" + first[1] : first[1]);
        Request request{first[0], url.path(QUrl::FullyDecoded), {}};
        const QUrlQuery query(url.query(QUrl::FullyEncoded).replace(QLatin1Char('+'), QLatin1String("%20")));
        for (const auto& [key, value] : query.queryItems(QUrl::FullyDecoded)) {
            request.query.insert(key, value);
        }
        connection->requests.push_back(request);
    }
}

/// Reads a chunked body as far as it has arrived. True when it is complete; `end` is then its end.
bool RecordedSite::readChunks(Connection* connection, QByteArray* body, int* end)
{
    const QByteArray& octets = connection->down.ready;
    int& at = connection->chunksReadTo;
    for (;;) {
        const int line = octets.indexOf("\r\n", at);
        if (line < 0) {
            connection->isBroken = octets.size() - at > longestHead;
            return false;
        }
        bool ok = false;
        const qint64 size = octets.mid(at, line - at).split(';').first().trimmed().toLongLong(&ok, 16);
        if (!ok || size < 0 || connection->chunks.size() + size > longestBody) {
            connection->isBroken = true;
            return false;
        }
        const int data = line + 2;
        if (size == 0) {
            const bool hasTrailer = octets.mid(data, 2) != "\r\n";
            const int last = hasTrailer ? octets.indexOf(headEnd, data) : data;
            *end = last + (hasTrailer ? headEnd.size() : 2);
            if (last < 0 || *end > octets.size()) {
                return false;
            }
            *body = std::exchange(connection->chunks, QByteArray());
            at = 0;
            return true;
        }
        if (octets.size() < data + size + 2) {
            return false;
        }
        connection->chunks += octets.mid(data, int(size));
        at = data + int(size) + 2;
    }
}

/// Reads the answer at the beginning of the data. True when it is complete; `end` is then its end.
bool RecordedSite::readReply(Connection* connection, bool hasBody, bool isClosed, HttpReply* reply, int* end)
{
    const QByteArray& octets = connection->down.ready;
    const int head = octets.indexOf(headEnd);
    const QList<QByteArray> first = octets.left(std::max(0, octets.indexOf('\r'))).split(' ');
    if (head < 0 || !octets.startsWith("HTTP/1.") || first.size() < 2) {
        const bool canBecomeHttp = octets.startsWith(QByteArray("HTTP/1.").left(octets.size()));
        connection->isBroken = head >= 0 || !canBecomeHttp || octets.size() > longestHead;
        return false;
    }
    reply->status = first[1].toInt();
    reply->headers = readHeaders(octets.left(head));
    const int at = head + headEnd.size();
    *end = at;
    if (!hasBody || reply->status < 200 || reply->status == 204 || reply->status == 304) {
        return true;
    }
    if (valueOf(reply->headers, "Transfer-Encoding").toLower().contains("chunked")) {
        connection->chunksReadTo = std::max(connection->chunksReadTo, at);
        return readChunks(connection, &reply->body, end);
    }
    const qint64 length = lengthOf(reply->headers);
    if ((length < 0 && !isClosed) || length > octets.size() - at) {
        return false;
    }
    reply->body = octets.mid(at, length < 0 ? -1 : int(length));
    *end = at + reply->body.size();
    return true;
}

void RecordedSite::readReplies(Connection* connection, qint64 timeUs, bool isClosed)
{
    constexpr int lowestFinalStatus = 200;
    QByteArray& octets = connection->down.ready;
    while (!octets.isEmpty() && !connection->requests.empty()) {
        const Request request = connection->requests.front();
        HttpReply reply;
        int end = 0;
        if (!readReply(connection, request.method != "HEAD", isClosed, &reply, &end)) {
            break;
        }
        octets.remove(0, end);
        if (reply.status >= lowestFinalStatus) {
            connection->requests.erase(connection->requests.begin());
            keep(request, reply, timeUs);
        }
    }
    connection->isBroken = connection->isBroken || octets.size() > longestBody + longestHead;
}

/// The connection of this client; the one that was quiet for longest makes room for a new one.
RecordedSite::Connection& RecordedSite::connectionOf(const QString& client, qint64 timeUs)
{
    if (!connections.contains(client) && connections.size() >= mostConnections) {
        auto quietest = connections.begin();
        for (auto one = connections.begin(); one != connections.end(); ++one) {
            quietest = one->usedUs < quietest->usedUs ? one : quietest;
        }
        connections.erase(quietest);
    }
    Connection& connection = connections[client];
    connection.usedUs = timeUs;
    return connection;
}

void RecordedSite::keep(const Request& request, HttpReply reply, qint64 timeUs)
{
    constexpr int notModified = 304;
    constexpr int loginWanted = 401; // the simulated site asks for its own login
    const qint64 size = 2 * reply.body.size() + longestHead / 64;
    if (request.method != "GET" || reply.status == notModified || reply.status == loginWanted ||
        kept + size > mostKept || keptPages >= mostPages) {
        return;
    }
    kept += size;
    ++keptPages;
    reply.headers.erase(std::remove_if(reply.headers.begin(), reply.headers.end(),
                                       [](const auto& header) { return isOfConnection(header.first); }),
                        reply.headers.end());
    for (auto& [name, value] : reply.headers) {
        if (qstricmp(name.constData(), "Location") == 0) {
            value = QUrl::fromEncoded(value).toEncoded(QUrl::RemoveScheme | QUrl::RemoveAuthority);
        }
    }
    pages[request.path].push_back({timeUs, reply});
    pages[keyOf(request.path, request.query)].push_back({timeUs, reply});
}

std::optional<HttpReply> RecordedSite::reply(const HttpRequest& request, qint64 timeUs) const
{
    auto versions = pages.constFind(keyOf(request.path, request.query));
    if (versions == pages.constEnd()) {
        versions = pages.constFind(request.path);
    }
    if (versions == pages.constEnd()) {
        return std::nullopt;
    }
    const Page* best = &versions->front();
    for (const Page& page : *versions) {
        best = page.timeUs <= timeUs ? &page : best;
    }
    return best->reply;
}

} // namespace Simulator

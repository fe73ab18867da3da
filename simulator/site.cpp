// SPDX-License-Identifier: MIT
#include "site.h"

#include "downloads.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>

#include <utility>

namespace Simulator {

namespace {

struct ContentType
{
    const char* suffix;
    const char* type;
};

constexpr ContentType contentTypes[] = {
    {"html", "text/html; charset=utf-8"},
    {"css", "text/css"},
    {"js", "application/javascript"},
    {"png", "image/png"},
};

HttpReply plain(int status, const QByteArray& text)
{
    HttpReply reply;
    reply.status = status;
    reply.addHeader("Content-Type", "text/plain");
    reply.body = text + "\n";
    return reply;
}

HttpReply json(int status, const QJsonDocument& document)
{
    HttpReply reply;
    reply.status = status;
    reply.addHeader("Content-Type", "application/json");
    reply.addHeader("Cache-Control", "no-store");
    reply.body = document.toJson(QJsonDocument::Compact) + "\n";
    return reply;
}

HttpReply html(const QByteArray& body)
{
    HttpReply reply;
    reply.addHeader("Content-Type", "text/html; charset=utf-8");
    reply.addHeader("Cache-Control", "no-store");
    reply.body = body;
    return reply;
}

HttpReply loginWanted()
{
    HttpReply reply = plain(401, "login required");
    reply.addHeader("WWW-Authenticate", "Basic realm=\"R7M\"");
    return reply;
}

/// One of the files that the program carries.
HttpReply file(const QString& path)
{
    QFile content(QStringLiteral(":/web") + path);
    if (path.contains(QLatin1String("..")) || !QFileInfo(content).isFile() ||
        !content.open(QIODevice::ReadOnly)) {
        return plain(404, "not found");
    }
    HttpReply reply;
    for (const ContentType& known : contentTypes) {
        if (path.endsWith(QLatin1Char('.') + QLatin1String(known.suffix))) {
            reply.addHeader("Content-Type", known.type);
        }
    }
    reply.addHeader("Cache-Control", "no-cache"); // so that a fault of a part is visible at the next reload
    reply.body = content.readAll();
    return reply;
}

QJsonObject queryAsAction(const QMap<QString, QString>& query)
{
    QJsonObject action;
    for (auto item = query.begin(); item != query.end(); ++item) {
        action.insert(item.key(), item.value());
    }
    return action;
}

QJsonDocument downloadList()
{
    QJsonArray list;
    for (const Download& download : downloads()) {
        list.append(QJsonObject{{QStringLiteral("path"), QLatin1String(download.path)},
                                {QStringLiteral("title"), QLatin1String(download.title)}});
    }
    return QJsonDocument(list);
}

QByteArray uploadPage(const QJsonArray& files)
{
    QString rows;
    for (const QJsonValue& entry : files) {
        const QJsonObject received = entry.toObject();
        rows += QStringLiteral("<tr><td>%1</td><td>%2</td><td><code>%3</code></td></tr>")
                    .arg(received.value(QLatin1String("name")).toString().toHtmlEscaped(),
                         QString::number(received.value(QLatin1String("size")).toDouble(), 'f', 0),
                         received.value(QLatin1String("md5")).toString());
    }
    return QStringLiteral("<!DOCTYPE html><html><head><meta charset=\"utf-8\"><title>Upload</title>"
                          "<link rel=\"stylesheet\" href=\"/style.css\"></head><body class=\"result\">"
                          "<h1>%1 received</h1><table><tr><th>Name</th><th>Octets</th><th>MD5</th></tr>%2"
                          "</table><a class=\"key wide\" href=\"/index.html#files\">Back to the board</a>"
                          "</body></html>\n")
        .arg(files.size() == 1 ? QStringLiteral("File") : QStringLiteral("%1 files").arg(files.size()), rows)
        .toUtf8();
}

} // namespace

Site::Site(Control controlSurface)
    : surface(std::move(controlSurface))
    , frontPage(QStringLiteral("/board.html"))
{
}

bool Site::setFrontPage(const QString& name)
{
    if (name != QLatin1String("board") && name != QLatin1String("plain")) {
        return false;
    }
    frontPage = QStringLiteral("/%1.html").arg(name);
    return true;
}

HttpReply Site::handle(const HttpRequest& request, const Recording& recording)
{
    if (loginRequired && request.credentials != Credentials::Right) {
        return loginWanted();
    }
    const bool isControl = request.path == QLatin1String("/control");
    const std::optional<HttpReply> recorded = isControl ? std::nullopt : recording(request);
    HttpReply reply = isControl ? control(request) : recorded ? *recorded : route(request);
    httpFaults.apply(reply, request);
    return reply;
}

HttpReply Site::route(const HttpRequest& request)
{
    const QString& path = request.path;
    if (path == QLatin1String("/upload")) {
        return upload(request);
    }
    if (request.method != "GET" && request.method != "HEAD") {
        return plain(405, "only GET and HEAD");
    }
    if (path == QLatin1String("/") || path == QLatin1String("/index.html")) {
        return file(frontPage);
    }
    if (path == QLatin1String("/uploads")) {
        return json(200, QJsonDocument(received));
    }
    if (path == QLatin1String("/downloads")) {
        return json(200, downloadList());
    }
    if (path.startsWith(QLatin1String("/download/"))) {
        return downloadReply(path.mid(10), request.query);
    }
    if (path.startsWith(QLatin1String("/odd/"))) {
        return odd(path.mid(5), request);
    }
    return file(path);
}

HttpReply Site::control(const HttpRequest& request) const
{
    Varnel::Outcome<> outcome;
    if (request.query.contains(QStringLiteral("do"))) {
        outcome = surface.perform(queryAsAction(request.query));
    }
    if (!outcome) {
        return json(400, QJsonDocument(QJsonObject{{QStringLiteral("error"), outcome.refusal.text}}));
    }
    return json(200, QJsonDocument(surface.status()));
}

HttpReply Site::upload(const HttpRequest& request)
{
    if (request.method != "POST") {
        return plain(405, "only POST");
    }
    for (const QJsonValue& entry : request.uploads) {
        received.append(entry);
    }
    if (request.query.value(QStringLiteral("format")) == QLatin1String("json")) {
        return json(200, QJsonDocument(request.uploads));
    }
    return html(uploadPage(request.uploads));
}

HttpReply Site::odd(const QString& kind, const HttpRequest& request) const
{
    HttpReply reply = file(QStringLiteral("/plain.html"));
    if (!spoil(reply, kind, request, queryAsAction(request.query))) {
        return plain(404, "no such odd page");
    }
    return reply;
}

} // namespace Simulator

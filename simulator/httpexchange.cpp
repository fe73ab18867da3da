// SPDX-License-Identifier: MIT
#include "httpexchange.h"

#include "httpserver.h"

#include <cstdlib>
#include <cstring>
#include <tuple>

namespace Simulator {

namespace {

constexpr size_t formBufferLength = size_t(64) * 1024;
constexpr size_t bodyBlockLength = size_t(64) * 1024;

MHD_Result collectQuery(void* target, MHD_ValueKind, const char* key, const char* value)
{
    auto* query = static_cast<QMap<QString, QString>*>(target);
    query->insert(QString::fromUtf8(key), QString::fromUtf8(value != nullptr ? value : ""));
    return MHD_YES;
}

QString credentialsWord(Credentials credentials)
{
    switch (credentials) {
    case Credentials::Right:
        return QStringLiteral("right");
    case Credentials::Wrong:
        return QStringLiteral("wrong");
    case Credentials::None:
        break;
    }
    return QStringLiteral("none");
}

} // namespace

HttpExchange::HttpExchange(HttpServer& httpServer, MHD_Connection* connectionHandle, const char* url,
                           const char* method)
    : server(httpServer)
    , connection(connectionHandle)
{
    ++server.exchanges;
    request.method = method;
    request.path = QString::fromUtf8(url); // libmicrohttpd has decoded the percent escapes
    request.agent = MHD_lookup_connection_value(connection, MHD_HEADER_KIND, MHD_HTTP_HEADER_USER_AGENT);
    MHD_get_connection_values(connection, MHD_GET_ARGUMENT_KIND, &collectQuery, &request.query);
    request.credentials = checkCredentials();
    const bool welcome = request.credentials == Credentials::Right || server.login.isEmpty();
    if (request.method == "POST" && welcome) {
        prepareUpload();
    }
}

HttpExchange::~HttpExchange()
{
    if (form != nullptr) {
        MHD_destroy_post_processor(form);
    }
    --server.exchanges;
}

Credentials HttpExchange::checkCredentials() const
{
    if (MHD_lookup_connection_value(connection, MHD_HEADER_KIND, MHD_HTTP_HEADER_AUTHORIZATION) == nullptr) {
        return Credentials::None;
    }
    char* sentPassword = nullptr;
    char* sentLogin = MHD_basic_auth_get_username_password(connection, &sentPassword);
    const bool right = sentLogin != nullptr && sentPassword != nullptr &&
                       server.login.toUtf8() == sentLogin && server.password.toUtf8() == sentPassword;
    MHD_free(sentLogin);
    MHD_free(sentPassword);
    return right ? Credentials::Right : Credentials::Wrong;
}

void HttpExchange::prepareUpload()
{
    form = MHD_create_post_processor(connection, formBufferLength, &HttpCallbacks::formData, this);
}

void HttpExchange::receive(const char* octets, size_t count)
{
    if (form != nullptr) {
        MHD_post_process(form, octets, count);
    }
}

void HttpExchange::decide()
{
    decided = true;
    if (form != nullptr) {
        MHD_destroy_post_processor(form); // hands over the rest of its data
        form = nullptr;
    }
    for (const std::unique_ptr<Upload>& upload : uploads) {
        request.uploads.append(upload->finish());
    }
    uploads.clear();
    reply = server.handler(request);
}

MHD_Result HttpExchange::proceed()
{
    if (!decided) {
        decide();
    }
    if (reply.neverAnswered) {
        logAnswer(0);
        server.suspend(connection);
        return MHD_YES;
    }
    if (reply.delayMs > 0 && !delayed) {
        delayed = true;
        server.suspendFor(connection, reply.delayMs);
        return MHD_YES;
    }
    MHD_Response* response = buildResponse();
    if (response == nullptr) {
        return MHD_NO;
    }
    for (const auto& header : qAsConst(reply.headers)) {
        MHD_add_response_header(response, header.first.constData(), header.second.constData());
    }
    const MHD_Result queued = MHD_queue_response(connection, static_cast<unsigned>(reply.status), response);
    MHD_destroy_response(response);
    logAnswer(reply.status);
    return queued;
}

MHD_Response* HttpExchange::buildResponse() const
{
    const bool understated = reply.claimedLength >= 0 && reply.claimedLength < reply.length();
    uint64_t size = MHD_SIZE_UNKNOWN; // no length of its own, so that a wrong one can be sent
    if (!reply.endless && !understated) {
        size = static_cast<uint64_t>(std::max(reply.length(), reply.claimedLength));
    }
    auto stream = std::make_unique<BodyStream>(BodyStream{&server, connection, reply});
    MHD_Response* response = MHD_create_response_from_callback(
        size, bodyBlockLength, &HttpCallbacks::readBody, stream.get(), &HttpCallbacks::freeBody);
    if (response == nullptr) {
        return nullptr;
    }
    std::ignore = stream.release(); // freeBody ends it
    if (understated) {
        const int flags = MHD_RF_INSANITY_HEADER_CONTENT_LENGTH | MHD_RF_HTTP_1_0_COMPATIBLE_STRICT;
        MHD_set_response_options(response, static_cast<MHD_ResponseFlags>(flags), MHD_RO_END);
        MHD_add_response_header(response, MHD_HTTP_HEADER_CONTENT_LENGTH,
                                QByteArray::number(reply.claimedLength).constData());
    }
    return response;
}

void HttpExchange::logAnswer(int status) const
{
    QJsonObject description{{QStringLiteral("event"), QStringLiteral("request")},
                            {QStringLiteral("method"), QString::fromLatin1(request.method)},
                            {QStringLiteral("path"), request.path},
                            {QStringLiteral("status"), status},
                            {QStringLiteral("auth"), credentialsWord(request.credentials)},
                            {QStringLiteral("agent"), QString::fromLatin1(request.agent)}};
    if (!request.query.isEmpty()) {
        QJsonObject query;
        for (auto item = request.query.begin(); item != request.query.end(); ++item) {
            query.insert(item.key(), item.value());
        }
        description.insert(QStringLiteral("query"), query);
    }
    if (!request.uploads.isEmpty()) {
        description.insert(QStringLiteral("uploads"), request.uploads);
    }
    emit server.answered(description);
}

MHD_Result HttpCallbacks::access(void* server, MHD_Connection* connection, const char* url,
                                 const char* method, const char*, const char* octets, size_t* count,
                                 void** exchange)
{
    if (*exchange == nullptr) {
        *exchange = new HttpExchange(*static_cast<HttpServer*>(server), connection, url, method);
        return MHD_YES; // called again with the body, or without one
    }
    auto* current = static_cast<HttpExchange*>(*exchange);
    if (*count == 0) {
        return current->proceed();
    }
    current->receive(octets, *count);
    *count = 0;
    return MHD_YES;
}

void HttpCallbacks::completed(void*, MHD_Connection*, void** exchange, MHD_RequestTerminationCode)
{
    std::unique_ptr<HttpExchange> ended(static_cast<HttpExchange*>(*exchange));
    *exchange = nullptr;
}

MHD_Result HttpCallbacks::formData(void* exchange, MHD_ValueKind, const char* key, const char* fileName,
                                   const char*, const char*, const char* octets, uint64_t offset,
                                   size_t count)
{
    auto* current = static_cast<HttpExchange*>(exchange);
    if (fileName == nullptr || key == nullptr) {
        return MHD_YES; // a plain form field
    }
    if (offset == 0) {
        current->uploads.push_back(std::make_unique<Upload>(
            QString::fromUtf8(key), QString::fromUtf8(fileName), current->server.uploadDirectory));
    }
    if (!current->uploads.empty()) {
        current->uploads.back()->append(octets, static_cast<qint64>(count));
    }
    return MHD_YES;
}

ssize_t HttpCallbacks::readBody(void* streamPointer, uint64_t unsignedPosition, char* buffer, size_t room)
{
    auto* stream = static_cast<BodyStream*>(streamPointer);
    const HttpReply& reply = stream->reply;
    const auto position = static_cast<qint64>(unsignedPosition);
    qint64 last = reply.endless ? position + static_cast<qint64>(room) : reply.length();
    if (reply.end != BodyEnd::Complete) {
        last = std::min(last, reply.stopAfter);
    }
    if (position >= last) {
        if (reply.end != BodyEnd::Stall) { // an error closes at once: fewer bytes came than announced
            return reply.claimedLength >= 0 && reply.claimedLength < last ? MHD_CONTENT_READER_END_OF_STREAM
                                                                          : MHD_CONTENT_READER_END_WITH_ERROR;
        }
        stream->server->suspend(stream->connection);
        return 0;
    }
    qint64 count = std::min(last - position, static_cast<qint64>(room));
    if (reply.paceMs > 0) {
        if (!stream->paused) {
            stream->paused = true;
            stream->server->suspendFor(stream->connection, reply.paceMs);
            return 0;
        }
        stream->paused = false;
        count = std::min(count, static_cast<qint64>(std::max(reply.chunk, 1)));
    }
    if (reply.generated < 0 && !reply.endless) {
        std::memcpy(buffer, reply.body.constData() + position, static_cast<size_t>(count));
        return count;
    }
    for (qint64 i = 0; i < count; ++i) {
        buffer[i] = patternOctet(position + i);
    }
    return count;
}

void HttpCallbacks::freeBody(void* stream)
{
    std::unique_ptr<BodyStream> ended(static_cast<BodyStream*>(stream));
}

} // namespace Simulator

// SPDX-License-Identifier: MIT
#pragma once

#include "httpmessages.h"
#include "upload.h"

#include <microhttpd.h>

#include <memory>
#include <vector>

namespace Simulator {

class HttpServer;

/// One request and its answer, from the first line of the request to the last byte of the answer.
class HttpExchange
{
public:
    HttpExchange(HttpServer& httpServer, MHD_Connection* connectionHandle, const char* url,
                 const char* method);
    ~HttpExchange();
    Q_DISABLE_COPY_MOVE(HttpExchange)

    /// Takes data of the request's body.
    void receive(const char* octets, size_t count);

    /// Called when the request is complete, and again after each wait: queues the answer or continues to
    /// wait.
    MHD_Result proceed();

private:
    friend struct HttpCallbacks;

    [[nodiscard]] Credentials checkCredentials() const;
    void prepareUpload();
    void decide();
    void logAnswer(int status) const;
    [[nodiscard]] MHD_Response* buildResponse() const;

    HttpServer& server;
    MHD_Connection* connection;
    HttpRequest request;
    HttpReply reply;
    MHD_PostProcessor* form = nullptr;
    std::vector<std::unique_ptr<Upload>> uploads;
    bool decided = false;
    bool delayed = false;
};

/// The body of an answer that is generated, slow or wrong; owned by the response that reads it.
struct BodyStream
{
    HttpServer* server = nullptr;
    MHD_Connection* connection = nullptr;
    HttpReply reply;
    bool paused = false; ///< true when the pause before the next data is over
};

/// The callbacks of libmicrohttpd.
struct HttpCallbacks
{
    static MHD_Result access(void* server, MHD_Connection* connection, const char* url, const char* method,
                             const char* version, const char* octets, size_t* count, void** exchange);
    static void completed(void* server, MHD_Connection* connection, void** exchange,
                          MHD_RequestTerminationCode reason);
    static MHD_Result formData(void* exchange, MHD_ValueKind kind, const char* key, const char* fileName,
                               const char* contentType, const char* encoding, const char* octets,
                               uint64_t offset, size_t count);
    static ssize_t readBody(void* stream, uint64_t position, char* buffer, size_t room);
    static void freeBody(void* stream);
};

} // namespace Simulator

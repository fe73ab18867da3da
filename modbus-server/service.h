// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <memory>

#include <QObject>
#include <QTimer>

#include "outcome.h"
#include "registerstore.h"
#include "serverconfig.h"
#include "transport.h"

namespace Varnel {

/// Options of the command line for the service.
struct ServiceOptions
{
    /// Age from which registers answer with exception 04; 0: the last value never gets stale.
    std::chrono::milliseconds staleAfter{0};
    /// See TcpTransport.
    std::chrono::milliseconds idleLimit{60000};
    /// First register of the status block, see RegisterStore; -1 for none.
    int statusBlock = -1;
    /// The file that keeps the init text from start() to stop(), so that a server that was killed or
    /// restarted in between serves the same tables again; empty: no file.
    QString stateFile;
};

/// The server behind its D-Bus interface: started by an init file, fed by update commands, stopped.
/// Everything happens in one event loop, a command between two requests, so no client sees half an update.
class Service : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(Service)

public:
    explicit Service(const ServiceOptions& options, QObject* parent = nullptr);
    ~Service() override;

    /// Serves the tables of the state file again, if there is one. Values are not kept: all registers start
    /// at 0.
    void restore();

    /// Reads the init file at `path` and serves what it describes, instead of what was served before; all
    /// registers start at 0. A file that is refused changes nothing. When the interface cannot be opened,
    /// returns "NoInterface" and tries again at the file's "delay" until it succeeds or stop() is called.
    Outcome<> start(const QString& path);

    /// Closes the interface and removes all registers. Does nothing when not started.
    void stop();

    /// Publishes the update command `text`, whole or not at all.
    Outcome<> update(const QByteArray& text);

    /// "stopped", "serving", or "waiting" for an interface that cannot be opened yet.
    [[nodiscard]] QString state() const;
    /// The endpoint in words, empty when stopped.
    [[nodiscard]] QString endpoint() const;
    [[nodiscard]] int clientCount() const;
    [[nodiscard]] int registerCount() const { return store.size(); }
    /// Updates published since the program started.
    [[nodiscard]] qulonglong updateCount() const { return published; }

private:
    Outcome<> apply(const QByteArray& initText);
    Outcome<> openInterface();
    [[nodiscard]] bool overlapsStatusBlock(const RegisterRange& table) const;
    void retryInterface();
    void interfaceFailed(const QString& reason);
    std::unique_ptr<Transport> makeTransport();
    void saveState(const QByteArray& initText) const;
    Outcome<> publish(const Outcome<RegisterUpdate>& update);
    void reportUpdate(const Outcome<>& outcome);

    ServiceOptions options;
    RegisterStore store;
    std::optional<ServerConfig> config;
    std::unique_ptr<Transport> transport;
    bool isOpen = false;
    QTimer retry;
    qulonglong published = 0;
    QString lastUpdateProblem;
};

} // namespace Varnel

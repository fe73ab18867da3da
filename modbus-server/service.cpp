// SPDX-License-Identifier: MIT
#include "service.h"

#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

#include "jsoncommand.h"
#include "logcategories.h"
#include "requesthandler.h"
#include "rtutransport.h"
#include "tcptransport.h"

namespace Varnel {

namespace {

/// Reads an init file. Only regular files: a pipe or a device would block the event loop.
Outcome<QByteArray> readInitFile(const QString& path)
{
    const auto refuse = [&path](const QString& why) {
        return Refusal{QStringLiteral("BadInit"), QStringLiteral("init file %1: %2").arg(quoted(path), why)};
    };
    QFile file(path);
    if (!QFileInfo(path).isFile()) {
        return refuse(QStringLiteral("no such file"));
    }
    if (!file.open(QIODevice::ReadOnly)) {
        return refuse(file.errorString());
    }
    return file.read(maxInitSize + 1); // one more than allowed, so that the parser sees that it is too long
}

} // namespace

Service::Service(const ServiceOptions& options, QObject* parent)
    : QObject(parent)
    , options(options)
{
    store.setStaleAfter(options.staleAfter);
    if (options.statusBlock >= 0) {
        store.setStatusBlock(options.statusBlock);
    }
    retry.setSingleShot(true);
    connect(&retry, &QTimer::timeout, this, &Service::retryInterface);
}

Service::~Service() = default;

QString Service::state() const
{
    if (!config) {
        return QStringLiteral("stopped");
    }
    return isOpen ? QStringLiteral("serving") : QStringLiteral("waiting");
}

QString Service::endpoint() const
{
    return config ? describe(*config) : QString();
}

int Service::clientCount() const
{
    return transport ? transport->clientCount() : 0;
}

void Service::restore()
{
    if (options.stateFile.isEmpty() || !QFileInfo::exists(options.stateFile)) {
        return;
    }
    qCInfo(lcServer) << "the last run was started and not stopped, serving its tables again";
    const Outcome<QByteArray> text = readInitFile(options.stateFile);
    const Outcome<> outcome = text ? apply(*text.value) : text.refusal;
    if (!outcome) {
        qCWarning(lcServer).noquote() << outcome.refusal.text;
    }
}

Outcome<> Service::start(const QString& path)
{
    const Outcome<QByteArray> text = readInitFile(path);
    Outcome<> outcome = text ? apply(*text.value) : text.refusal;
    if (!outcome) {
        qCWarning(lcServer).noquote() << "start:" << outcome.refusal.text;
    }
    return outcome;
}

Outcome<> Service::apply(const QByteArray& initText)
{
    Outcome<ServerConfig> parsed = parseInit(initText);
    if (!parsed) {
        return Refusal{parsed.refusal.kind, QStringLiteral("init file: ") + parsed.refusal.text};
    }
    for (const RegisterRange& table : parsed.value->tables) {
        if (overlapsStatusBlock(table)) {
            return Refusal{QStringLiteral("BadInit"),
                           QStringLiteral("init file: the table at %1 covers the status block at %2")
                               .arg(table.address)
                               .arg(options.statusBlock)};
        }
    }
    stop();
    config = *parsed.value;
    store.configure(config->tables);
    saveState(initText);
    Outcome<> opened = openInterface();
    if (!opened) {
        retry.start(config->retryInterval);
        opened.refusal.text +=
            QStringLiteral("; trying again every %1 ms").arg(config->retryInterval.count());
    }
    return opened;
}

bool Service::overlapsStatusBlock(const RegisterRange& table) const
{
    return options.statusBlock >= 0 && table.length > 0 &&
           table.address < options.statusBlock + RegisterStore::statusLength &&
           options.statusBlock < table.address + table.length;
}

void Service::stop()
{
    if (!config) {
        return;
    }
    qCInfo(lcServer).noquote() << "stopped" << endpoint();
    retry.stop();
    transport.reset();
    isOpen = false;
    config.reset();
    store.clear();
    lastUpdateProblem.clear();
    if (!options.stateFile.isEmpty()) {
        QFile::remove(options.stateFile);
    }
}

std::unique_ptr<Transport> Service::makeTransport()
{
    const auto answer = [this](const QByteArray& pdu) {
        const auto now = RegisterStore::Clock::now();
        store.refreshStatus(now);
        return answerRequest(pdu, store, now);
    };
    if (const auto* tcp = std::get_if<TcpEndpoint>(&config->endpoint)) {
        return std::make_unique<TcpTransport>(*tcp, options.idleLimit, answer);
    }
    return std::make_unique<RtuTransport>(std::get<RtuEndpoint>(config->endpoint), answer);
}

Outcome<> Service::openInterface()
{
    transport = makeTransport();
    connect(transport.get(), &Transport::failed, this, &Service::interfaceFailed);
    const Outcome<> opened = transport->open();
    isOpen = static_cast<bool>(opened);
    if (!opened) {
        return Refusal{QStringLiteral("NoInterface"),
                       QStringLiteral("cannot open %1: %2").arg(endpoint(), opened.refusal.text)};
    }
    qCInfo(lcServer).noquote() << "serving" << registerCount() << "registers on" << endpoint();
    return {};
}

void Service::retryInterface()
{
    // Only a change is logged.
    if (!openInterface()) {
        retry.start(config->retryInterval);
    }
}

void Service::interfaceFailed(const QString& reason)
{
    qCWarning(lcServer).noquote() << "lost" << endpoint() << QLatin1Char('(') + reason + QLatin1Char(')')
                                  << "trying again every" << config->retryInterval.count() << "ms";
    isOpen = false;
    retry.start(config->retryInterval);
}

Outcome<> Service::update(const QByteArray& text)
{
    Outcome<> outcome = publish(parseUpdate(text));
    reportUpdate(outcome);
    return outcome;
}

Outcome<> Service::publish(const Outcome<RegisterUpdate>& update)
{
    if (!update) {
        return Refusal{update.refusal.kind, QStringLiteral("update command: ") + update.refusal.text};
    }
    if (!config) {
        return Refusal{QStringLiteral("NotStarted"),
                       QStringLiteral("update command: the server is not started")};
    }
    return store.publish(*update.value, RegisterStore::Clock::now());
}

/// Updates come many times a second; a problem is logged when it appears or changes.
void Service::reportUpdate(const Outcome<>& outcome)
{
    if (outcome) {
        ++published;
    } else if (outcome.refusal.text != lastUpdateProblem) {
        qCWarning(lcServer).noquote() << outcome.refusal.text;
    }
    lastUpdateProblem = outcome.refusal.text;
}

void Service::saveState(const QByteArray& initText) const
{
    if (options.stateFile.isEmpty()) {
        return;
    }
    QSaveFile file(options.stateFile);
    if (!file.open(QIODevice::WriteOnly) || file.write(initText) != initText.size() || !file.commit()) {
        qCWarning(lcServer).noquote()
            << "cannot keep" << options.stateFile + QLatin1Char(':') << file.errorString();
    }
}

} // namespace Varnel

// SPDX-License-Identifier: MIT
#include "service.h"

#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

#include "jsoncommand.h"
#include "log.h"
#include "requesthandler.h"
#include "rtutransport.h"
#include "tcptransport.h"

namespace Varnel {

namespace {

/// Reads an init file. Only regular files: a pipe or a device would hold the event loop up.
Parsed<QByteArray> readInitFile(const QString& path)
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
    return file.read(maxInitSize + 1); // one more than allowed, so that the parser sees what is too long
}

} // namespace

Service::Service(const ServiceOptions& options, QObject* parent)
    : QObject(parent)
    , options(options)
{
    store.setStaleAfter(options.staleAfter);
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
    const Parsed<QByteArray> text = readInitFile(options.stateFile);
    const Refusal refusal = text ? apply(*text.value) : text.refusal;
    if (!refusal.kind.isEmpty()) {
        qCWarning(lcServer).noquote() << refusal.text;
    }
}

Refusal Service::start(const QString& path)
{
    const Parsed<QByteArray> text = readInitFile(path);
    Refusal refusal = text ? apply(*text.value) : text.refusal;
    if (!refusal.kind.isEmpty()) {
        qCWarning(lcServer).noquote() << "start:" << refusal.text;
    }
    return refusal;
}

Refusal Service::apply(const QByteArray& initText)
{
    Parsed<ServerConfig> parsed = parseInit(initText);
    if (!parsed) {
        return {parsed.refusal.kind, QStringLiteral("init file: ") + parsed.refusal.text};
    }
    stop();
    config = *parsed.value;
    store.configure(config->tables);
    saveState(initText);
    Refusal refusal = openInterface();
    if (!refusal.kind.isEmpty()) {
        retry.start(config->retryInterval);
        refusal.text += QStringLiteral("; trying again every %1 ms").arg(config->retryInterval.count());
    }
    return refusal;
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
        return answerRequest(pdu, store, RegisterStore::Clock::now());
    };
    if (const auto* tcp = std::get_if<TcpEndpoint>(&config->endpoint)) {
        return std::make_unique<TcpTransport>(*tcp, options.idleLimit, answer);
    }
    return std::make_unique<RtuTransport>(std::get<RtuEndpoint>(config->endpoint), answer);
}

Refusal Service::openInterface()
{
    transport = makeTransport();
    connect(transport.get(), &Transport::failed, this, &Service::interfaceFailed);
    QString error;
    isOpen = transport->open(&error);
    if (!isOpen) {
        return {QStringLiteral("NoInterface"), QStringLiteral("cannot open %1: %2").arg(endpoint(), error)};
    }
    qCInfo(lcServer).noquote() << "serving" << registerCount() << "registers on" << endpoint();
    return {};
}

void Service::retryInterface()
{
    // Silent while it stays as it was reported: only the change is news.
    if (!openInterface().kind.isEmpty()) {
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

Refusal Service::update(const QByteArray& text)
{
    Refusal refusal;
    const Parsed<RegisterUpdate> parsed = parseUpdate(text);
    if (!parsed) {
        refusal = {parsed.refusal.kind, QStringLiteral("update command: ") + parsed.refusal.text};
    } else if (!config) {
        refusal = {QStringLiteral("NotStarted"), QStringLiteral("update command: the server is not started")};
    } else {
        refusal = store.publish(*parsed.value, RegisterStore::Clock::now());
    }
    reportUpdate(refusal);
    return refusal;
}

/// Updates come many times a second; a problem is logged when it appears or changes.
void Service::reportUpdate(const Refusal& refusal)
{
    if (refusal.kind.isEmpty()) {
        ++published;
    } else if (refusal.text != lastUpdateProblem) {
        qCWarning(lcServer).noquote() << refusal.text;
    }
    lastUpdateProblem = refusal.text;
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

// SPDX-License-Identifier: MIT
#pragma once

#include <functional>

#include <QObject>

#include "outcome.h"

namespace Varnel {

/// Answers a request PDU; an empty answer means that nothing is sent.
using AnswerFunction = std::function<QByteArray(const QByteArray& pdu)>;

/// One opened Modbus interface. Closes with its destruction.
class Transport : public QObject
{
    Q_OBJECT

public:
    using QObject::QObject;

    /// Opens the interface. When that fails, it may be tried again.
    virtual Outcome<> open() = 0;

    /// Clients connected now; a serial line counts as one.
    [[nodiscard]] virtual int clientCount() const = 0;

signals:
    /// The interface broke while in use (a serial adapter was unplugged, say) and is closed now.
    void failed(const QString& reason);
};

} // namespace Varnel

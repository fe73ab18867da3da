// SPDX-License-Identifier: MIT
#include "rtutransport.h"

#include <chrono>

#include <poll.h>

namespace Varnel {

namespace {

constexpr int bitsPerCharacter = 11;
// USB adapters deliver data in blocks of up to 16 ms; a shorter silence would cut frames in two.
constexpr int minSilenceMs = 20;

/// The silence of 3.5 characters that ends a frame.
std::chrono::milliseconds frameGap(qint32 baud)
{
    const int charactersMs = 3500 * bitsPerCharacter / baud + 1;
    return std::chrono::milliseconds(qMax(minSilenceMs, charactersMs));
}

/// A port whose hardware is gone reads as ended. QSerialPort has no error for this: it keeps reporting a
/// failed read with the last error number.
bool isHungUp(int descriptor)
{
    pollfd state{descriptor, 0, 0};
    return ::poll(&state, 1, 0) == 1 && (state.revents & (POLLHUP | POLLERR | POLLNVAL)) != 0;
}

} // namespace

RtuTransport::RtuTransport(const RtuEndpoint& endpoint, AnswerFunction answer, QObject* parent)
    : Transport(parent)
    , endpoint(endpoint)
    , answer(std::move(answer))
    , decoder(endpoint.deviceId)
{
    silence.setSingleShot(true);
    silence.setInterval(frameGap(endpoint.baud));
    connect(&silence, &QTimer::timeout, this, &RtuTransport::lineSilent);
    connect(&serial, &QSerialPort::readyRead, this, &RtuTransport::receive);
    connect(&serial, &QSerialPort::errorOccurred, this, &RtuTransport::portError);
}

Outcome<> RtuTransport::open()
{
    serial.setPortName(endpoint.port);
    const bool opened = serial.open(QIODevice::ReadWrite) && serial.setBaudRate(endpoint.baud) &&
                        serial.setDataBits(QSerialPort::Data8) && serial.setParity(endpoint.parity) &&
                        serial.setStopBits(endpoint.stopBits) &&
                        serial.setFlowControl(QSerialPort::NoFlowControl);
    if (!opened) {
        Refusal refusal(serial.errorString());
        serial.close();
        return refusal;
    }
    serial.clear(); // requests from before this moment have timed out
    decoder = RtuDecoder(endpoint.deviceId);
    return {};
}

void RtuTransport::receive()
{
    if (const std::optional<QByteArray> request = decoder.receive(serial.readAll())) {
        reply(*request);
    }
    if (decoder.isPending()) {
        silence.start();
    } else {
        silence.stop();
    }
}

void RtuTransport::lineSilent()
{
    if (serial.bytesAvailable() > 0) {
        receive(); // the loop was busy, the line was not silent
        return;
    }
    if (const std::optional<QByteArray> request = decoder.silence()) {
        reply(*request);
    }
}

void RtuTransport::reply(const QByteArray& pdu)
{
    const QByteArray response = answer(pdu);
    // A line that accepts nothing (no reader on a pseudo terminal, a stuck handshake) must not fill the
    // memory; the master no longer waits for these answers.
    if (serial.bytesToWrite() > 0) {
        serial.clear(QSerialPort::Output);
    }
    if (!response.isEmpty()) {
        serial.write(rtuFrame(endpoint.deviceId, response));
    }
}

/// Acts on the loss of the port. Other errors come from single calls, which report them themselves, or from
/// noise.
void RtuTransport::portError(QSerialPort::SerialPortError error)
{
    if (!serial.isOpen() || (error != QSerialPort::ResourceError && !isHungUp(serial.handle()))) {
        return;
    }
    silence.stop();
    serial.close();
    emit failed(QStringLiteral("the port is gone"));
}

} // namespace Varnel

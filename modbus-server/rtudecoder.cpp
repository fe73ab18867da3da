// SPDX-License-Identifier: MIT
#include "rtudecoder.h"

namespace Varnel {

namespace {

constexpr int addressSize = 1;
constexpr int crcSize = 2;
constexpr int minFrame = addressSize + 1 + crcSize;
constexpr int maxFrame = 256;
// Address, function, two 16-bit fields, CRC: requests 1 to 6, answers to 5, 6, 15 and 16.
constexpr int shortFrame = 8;
constexpr int exceptionFrame = 5;
constexpr int readAnswerCountAt = 2;
constexpr int readAnswerOverhead = 5;
constexpr int writeCountAt = 6;
constexpr int writeOverhead = 9;

bool hasValidCrc(const QByteArray& frame)
{
    // The CRC over a frame and its own CRC is 0.
    return frame.size() >= minFrame && modbusCrc(frame) == 0;
}

/// Length of a frame whose count octet is at `countAt`, or 0 when it has not arrived yet.
int countedLength(const QByteArray& buffer, int countAt, int overhead)
{
    return buffer.size() > countAt ? static_cast<quint8>(buffer.at(countAt)) + overhead : 0;
}

quint8 octetAt(const QByteArray& frame, int at)
{
    return static_cast<quint8>(frame.at(at));
}

/// Function codes from 128 on are exception answers. On some lines a device hears itself; answering its own
/// answers would never end.
bool isRequestTo(quint8 deviceId, const QByteArray& frame)
{
    return octetAt(frame, 0) == deviceId && octetAt(frame, 1) < 0x80;
}

QByteArray pduOf(const QByteArray& frame)
{
    return frame.mid(addressSize, frame.size() - addressSize - crcSize);
}

} // namespace

quint16 modbusCrc(const QByteArray& octets)
{
    unsigned crc = 0xFFFF;
    for (const char octet : octets) {
        crc ^= static_cast<quint8>(octet);
        for (int bit = 0; bit < 8; ++bit) {
            crc = (crc & 1U) != 0 ? (crc >> 1U) ^ 0xA001U : crc >> 1U;
        }
    }
    return static_cast<quint16>(crc);
}

QByteArray rtuFrame(quint8 address, const QByteArray& pdu)
{
    QByteArray frame = static_cast<char>(address) + pdu;
    const quint16 crc = modbusCrc(frame);
    frame += static_cast<char>(crc & 0xFFU);
    frame += static_cast<char>(crc >> 8U);
    return frame;
}

/// The frame at the start of the buffer. Recognises answers as well, so that the request after another
/// device's answer is not taken for a part of it.
RtuDecoder::Shape RtuDecoder::recognise() const
{
    const Shape shapes[] = {
        {shortFrame, true},
        {countedLength(buffer, writeCountAt, writeOverhead), true},
        {countedLength(buffer, readAnswerCountAt, readAnswerOverhead), false},
        {exceptionFrame, false},
    };
    for (const Shape& shape : shapes) {
        if (shape.length > 0 && shape.length <= buffer.size() && hasValidCrc(buffer.left(shape.length))) {
            return shape;
        }
    }
    return {};
}

/// The request, of the usual length, at the end of an unrecognised burst that begins with noise or a damaged
/// frame.
std::optional<QByteArray> RtuDecoder::requestAtEnd()
{
    const QByteArray tail = buffer.right(shortFrame);
    if (tail.size() < shortFrame || !isRequestTo(deviceId, tail) || !hasValidCrc(tail)) {
        return std::nullopt;
    }
    buffer.clear();
    return pduOf(tail);
}

std::optional<QByteArray> RtuDecoder::receive(const QByteArray& octets)
{
    std::optional<QByteArray> request;
    buffer += octets;
    for (Shape shape = recognise(); shape.length > 0; shape = recognise()) {
        const QByteArray frame = buffer.left(shape.length);
        buffer.remove(0, shape.length);
        request.reset();
        if (shape.isRequest && isRequestTo(deviceId, frame)) {
            request = pduOf(frame);
        }
    }
    if (std::optional<QByteArray> late = requestAtEnd()) {
        request = late;
    }
    buffer = buffer.right(maxFrame);
    return request;
}

std::optional<QByteArray> RtuDecoder::silence()
{
    const QByteArray frame = buffer;
    buffer.clear();
    if (!hasValidCrc(frame) || !isRequestTo(deviceId, frame)) {
        return std::nullopt;
    }
    return pduOf(frame);
}

} // namespace Varnel

// SPDX-License-Identifier: MIT
#include "requesthandler.h"

#include <QModbusExceptionResponse>
#include <QModbusPdu>
#include <QtEndian>

namespace Varnel {

namespace {

// Both limits make the longest answer fill a PDU of 253 octets (Modbus application protocol, 6.1 to 6.4).
constexpr int maxWords = 125;
constexpr int maxBits = 2000;

/// The contents of an answer: registers as words, or as single bits.
struct ReadKind
{
    QModbusPdu::FunctionCode function;
    int limit;
    QByteArray (*encode)(const RegisterStore& store, int address, int count);
};

QByteArray encodeWords(const RegisterStore& store, int address, int count)
{
    QByteArray octets(count * 2, '\0');
    char* octet = octets.data();
    for (int at = address; at < address + count; ++at, octet += 2) {
        qToBigEndian(store.word(at), octet);
    }
    return octets;
}

QByteArray encodeBits(const RegisterStore& store, int address, int count)
{
    QByteArray octets((count + 7) / 8, '\0');
    for (int at = 0; at < count; ++at) {
        if (store.word(address + at) != 0) {
            octets[at / 8] = static_cast<char>(octets.at(at / 8) | (1 << (at % 8)));
        }
    }
    return octets;
}

constexpr ReadKind reads[] = {
    {QModbusPdu::ReadCoils, maxBits, &encodeBits},
    {QModbusPdu::ReadDiscreteInputs, maxBits, &encodeBits},
    {QModbusPdu::ReadHoldingRegisters, maxWords, &encodeWords},
    {QModbusPdu::ReadInputRegisters, maxWords, &encodeWords},
};

const ReadKind* findRead(QModbusPdu::FunctionCode function)
{
    for (const ReadKind& read : reads) {
        if (read.function == function) {
            return &read;
        }
    }
    return nullptr;
}

/// The octets of a PDU. QModbusPdu's own stream operator refuses codes outside the standard's list, but those
/// too must be answered with exception 01.
QByteArray toOctets(const QModbusPdu& pdu)
{
    const int exceptionBit = pdu.isException() ? QModbusPdu::ExceptionByte : 0;
    return static_cast<char>(pdu.functionCode() | exceptionBit) + pdu.data();
}

QByteArray answerRead(const ReadKind& read, const QByteArray& data, const RegisterStore& store,
                      RegisterStore::Clock::time_point now)
{
    const auto refuse = [&read](QModbusPdu::ExceptionCode code) {
        return toOctets(QModbusExceptionResponse(read.function, code));
    };
    if (data.size() != 4) {
        return refuse(QModbusPdu::IllegalDataValue);
    }
    const int address = qFromBigEndian<quint16>(data.constData());
    const int count = qFromBigEndian<quint16>(data.constData() + 2);
    if (count < 1 || count > read.limit) {
        return refuse(QModbusPdu::IllegalDataValue);
    }
    if (!store.covers(address, count)) {
        return refuse(QModbusPdu::IllegalDataAddress);
    }
    if (!store.isFresh(address, count, now)) {
        return refuse(QModbusPdu::ServerDeviceFailure);
    }
    const QByteArray values = read.encode(store, address, count);
    return toOctets(QModbusResponse(read.function, static_cast<char>(values.size()) + values));
}

} // namespace

QByteArray answerRequest(const QByteArray& pdu, const RegisterStore& store,
                         RegisterStore::Clock::time_point now)
{
    if (pdu.isEmpty()) {
        return {};
    }
    const auto function = static_cast<QModbusPdu::FunctionCode>(static_cast<quint8>(pdu.at(0)));
    if (const ReadKind* read = findRead(function)) {
        return answerRead(*read, pdu.mid(1), store, now);
    }
    return toOctets(QModbusExceptionResponse(function, QModbusPdu::IllegalFunction));
}

} // namespace Varnel

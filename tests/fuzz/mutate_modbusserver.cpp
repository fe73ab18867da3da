// SPDX-License-Identifier: MIT
// Commands are changed as JSON; frames on the two lines get a right length or checksum.
#include <cstring>

#include <QtEndian>

#include "harness.h"
#include "jsonmutator.h"
#include "mbapdecoder.h"
#include "rtudecoder.h"
#include "serverinput.h"

extern "C" size_t LLVMFuzzerMutate(uint8_t* data, size_t size, size_t maxSize);

namespace {

QStringList words()
{
    return QStringLiteral(
               "init setconfig tcp rtu r w rw 8N1 8E2 8O1 7N1 /dev/ttyS1 ttyS1 0.0.0.0 :: 127.0.0.1 host cmd "
               "delay protocol tables address mode length listen port clients devid baud data values")
        .split(QLatin1Char(' '));
}

const char initText[] = R"({"cmd":"init","delay":500,"protocol":"rtu","rtu":{"devid":1,"port":"/dev/ttyS1",
"baud":19200,"mode":"8N1"},"tcp":{"listen":"0.0.0.0","port":502,"clients":10},
"tables":[{"address":0,"mode":"r","length":10},{"address":100,"mode":"r","length":5}]})";
const char updateText[] = R"({"cmd":"setconfig","data":[{"address":100,"values":[0,1,65535]}]})";

QByteArray aRequest(fuzz::JsonMutator* chance)
{
    QByteArray pdu(5, '\0');
    pdu[0] = static_cast<char>(1 + chance->below(5));
    static const int addresses[] = {0, 5, 39, 40, 99, 100, 300, 399, 65500, 65535};
    qToBigEndian(quint16(addresses[chance->below(10)] + chance->below(3) - 1), pdu.data() + 1);
    qToBigEndian(quint16(chance->oneIn(3) ? chance->below(2100) : chance->below(12)), pdu.data() + 3);
    if (chance->oneIn(5)) {
        pdu = pdu.left(chance->below(5)) + QByteArray(chance->below(6), char(chance->below(256)));
    }
    return pdu;
}

QByteArray tcpFrame(fuzz::JsonMutator* chance)
{
    return Varnel::mbapResponse({quint16(chance->below(65536)), quint8(chance->below(256)), {}},
                                aRequest(chance));
}

/// A frame in pieces, now and then with silence or noise around it.
QByteArray serialPieces(fuzz::JsonMutator* chance)
{
    const QByteArray frame = Varnel::rtuFrame(quint8(chance->below(3)), aRequest(chance));
    const int cut = chance->oneIn(3) ? chance->below(frame.size()) : frame.size();
    QByteArray pieces = char(cut) + frame.left(cut) + char(frame.size() - cut) + frame.mid(cut);
    if (chance->oneIn(3)) {
        pieces = QByteArray("\x02\x01\x83", 3) + pieces;
    }
    return pieces;
}

} // namespace

extern "C" size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t maxSize, unsigned seed)
{
    if (seed % 3 == 0 || size == 0) {
        return LLVMFuzzerMutate(data, size, maxSize);
    }
    fuzz::JsonMutator mutator(seed, words());
    fuzz::Input input(data, size);
    const quint8 kind = mutator.oneIn(30) ? static_cast<quint8>('0' + mutator.below(5)) : input.u8();
    QByteArray rest = input.rest();
    switch (kind % 8) {
    case fuzz::Init:
        rest = mutator.mutated(rest, initText);
        break;
    case fuzz::Update:
        rest = mutator.mutated(rest, updateText);
        break;
    case fuzz::TcpStream:
        rest = mutator.oneIn(4) ? tcpFrame(&mutator) : rest + tcpFrame(&mutator);
        break;
    case fuzz::SerialLine:
        rest = mutator.oneIn(2) ? rest + serialPieces(&mutator) : serialPieces(&mutator) + rest;
        break;
    default:
        rest = aRequest(&mutator);
    }
    const QByteArray result = char(kind) + rest;
    const size_t length = qMin(size_t(result.size()), maxSize);
    std::memcpy(data, result.constData(), length);
    return length;
}

// SPDX-License-Identifier: MIT
// The Modbus server: init files, update commands, and what clients send over TCP and the serial line. The
// first octet modulo 8 says which ("0" to "4"); all others are requests.
#include <QCoreApplication>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include "harness.h"
#include "mbapdecoder.h"
#include "registerstore.h"
#include "registerupdate.h"
#include "requesthandler.h"
#include "rtudecoder.h"
#include "serverconfig.h"

using namespace Varnel;
using fuzz::require;

namespace {

constexpr int longestPdu = 253;
constexpr int longestRefusal = 200;
const RegisterStore::Clock::time_point now{std::chrono::hours(1)};

/// Registers 0 to 9, 100 to 399 (each holding its address) and the last ones; 40 is old.
struct Stage
{
    Stage()
    {
        store.configure({{0, 10}, {40, 1}, {100, 300}, {65500, 36}});
        store.setStaleAfter(std::chrono::minutes(1));
        RegisterUpdate update;
        for (const int start : {0, 100, 200, 300, 65500}) {
            RegisterRun run{static_cast<quint16>(start), {}};
            for (int at = start; at < start + 100 && store.covers(at, 1); ++at) {
                run.words.push_back(static_cast<quint16>(at));
            }
            update.push_back(run);
        }
        require(bool(store.publish(update, now)), "the tables are there");
    }
    RegisterStore store;
    RegisterStore scratch;
};

Stage* stage = nullptr;

void checkRefusal(const Refusal& refusal, const char* kind)
{
    require(refusal.kind == QLatin1String(kind) || refusal.kind == QLatin1String("UnknownCommand"),
            "kind of refusal");
    require(!refusal.text.isEmpty() && refusal.text.size() < longestRefusal, "a refusal has one short line");
    for (const QChar character : refusal.text) {
        require(character.isPrint(), "a refusal can be printed");
    }
}

bool isInTable(const std::vector<RegisterRange>& tables, int address)
{
    return std::any_of(tables.cbegin(), tables.cend(), [address](const RegisterRange& table) {
        return address >= table.address && address < table.address + table.length;
    });
}

void init(const QByteArray& text)
{
    const Outcome<ServerConfig> parsed = parseInit(text);
    if (!parsed) {
        checkRefusal(parsed.refusal, "BadInit");
        return;
    }
    const ServerConfig& config = *parsed.value;
    require(!describe(config).isEmpty(), "an endpoint has words");
    require(config.retryInterval.count() >= 100 && config.retryInterval.count() <= 3600000,
            "pause between attempts");
    if (const auto* const tcp = std::get_if<TcpEndpoint>(&config.endpoint)) {
        require(!tcp->listen.isNull() && tcp->port > 0 && tcp->clients >= 1 && tcp->clients <= 1000,
                "TCP endpoint");
    } else {
        const auto& rtu = std::get<RtuEndpoint>(config.endpoint);
        require(rtu.deviceId >= 1 && rtu.deviceId <= 247 && rtu.port.startsWith(QLatin1Char('/')) &&
                    rtu.baud > 0,
                "RTU endpoint");
    }
    int edges = 0;
    for (const RegisterRange& table : config.tables) {
        require(table.length >= 0 && table.address + table.length <= addressSpace,
                "tables stay in the address space");
        edges += table.length > 0 ? 1 : 0;
    }
    if (config.tables.size() > 50) {
        return; // more of the same
    }
    stage->scratch.configure(config.tables);
    for (const RegisterRange& table : config.tables) {
        require(stage->scratch.covers(table.address, table.length), "every table is there");
        const int after = table.address + table.length;
        require(stage->scratch.covers(after, 1) == (after < addressSpace && isInTable(config.tables, after)),
                "only tables are there");
    }
    require((stage->scratch.size() > 0) == (edges > 0), "as many registers as tables say");
}

QByteArray written(const RegisterUpdate& update)
{
    QJsonArray data;
    for (const RegisterRun& run : update) {
        QJsonArray values;
        for (const quint16 word : run.words) {
            values.append(int(word));
        }
        data.append(
            QJsonObject{{QStringLiteral("address"), int(run.address)}, {QStringLiteral("values"), values}});
    }
    return QJsonDocument(QJsonObject{{QStringLiteral("cmd"), QStringLiteral("setconfig")},
                                     {QStringLiteral("data"), data}})
        .toJson(QJsonDocument::Compact);
}

void update(const QByteArray& text)
{
    const Outcome<RegisterUpdate> parsed = parseUpdate(text);
    if (!parsed) {
        checkRefusal(parsed.refusal, "BadUpdate");
        return;
    }
    bool fits = true;
    for (const RegisterRun& run : *parsed.value) {
        require(run.address + run.words.size() <= size_t(addressSpace), "runs stay in the address space");
        fits = fits && stage->scratch.covers(run.address, int(run.words.size()));
    }
    const Outcome<RegisterUpdate> again = parseUpdate(written(*parsed.value));
    require(bool(again) && *again.value == *parsed.value, "an update written out reads the same");
    const quint16 before = stage->scratch.word(0);
    const Outcome<> published = stage->scratch.publish(*parsed.value, now);
    require(bool(published) == fits, "an update that fits is taken");
    require(fits || stage->scratch.word(0) == before, "a refused update changes nothing");
    for (size_t i = 0; fits && i < parsed.value->size(); ++i) {
        const RegisterRun& run = (*parsed.value)[i];
        for (size_t at = 0; i + 1 == parsed.value->size() && at < run.words.size(); ++at) {
            require(stage->scratch.word(run.address + int(at)) == run.words[at], "the last run stands");
        }
    }
}

/// The answer according to the protocol's document.
QByteArray wantedAnswer(const QByteArray& pdu)
{
    const auto octet = [&pdu](int at) { return int(quint8(pdu.at(at))); };
    const auto exception = [&octet](int code) { return QByteArray(1, char(octet(0) | 0x80)) + char(code); };
    if (octet(0) < 1 || octet(0) > 4) {
        return exception(1);
    }
    const int limit = octet(0) <= 2 ? 2000 : 125;
    const int address = pdu.size() == 5 ? octet(1) * 256 + octet(2) : 0;
    const int count = pdu.size() == 5 ? octet(3) * 256 + octet(4) : 0;
    if (count < 1 || count > limit) {
        return exception(3);
    }
    QByteArray bits((count + 7) / 8, '\0');
    QByteArray words;
    bool fresh = true;
    for (int at = address; at < address + count; ++at) {
        if (at >= addressSpace || !stage->store.covers(at, 1)) {
            return exception(2);
        }
        fresh = fresh && at != 40;
        const int bit = at - address;
        bits[bit / 8] = char(bits[bit / 8] | (at != 0 ? 1 << bit % 8 : 0));
        words += char(at / 256);
        words += char(at % 256);
    }
    const QByteArray values = octet(0) <= 2 ? bits : words;
    return fresh ? pdu.left(1) + char(values.size()) + values : exception(4);
}

void checkAnswer(const QByteArray& pdu)
{
    const QByteArray answer = answerRequest(pdu, stage->store, now);
    require(!answer.isEmpty() && answer.size() <= longestPdu, "an answer fits a PDU");
    require(answer == wantedAnswer(pdu), "the answer of the protocol's document");
}

struct MbapResult
{
    QList<QByteArray> pdus;
    bool broken = false;
    int pending = 0;
};

MbapResult decodeMbap(const QByteArray& stream, int step)
{
    MbapResult result;
    MbapDecoder decoder;
    for (int at = 0; at < stream.size(); at += step) {
        decoder.append(stream.mid(at, step));
        while (const std::optional<MbapRequest> request = decoder.next()) {
            result.pdus << mbapResponse(*request, request->pdu);
        }
        if (decoder.isBroken()) {
            break; // the connection is closed
        }
        require(decoder.pending() < 7 + longestPdu, "no more is kept than one request");
    }
    result.broken = decoder.isBroken();
    result.pending = decoder.isBroken() ? 0 : decoder.pending();
    return result;
}

void mbap(const QByteArray& stream)
{
    const MbapResult whole = decodeMbap(stream, stream.size() + 1);
    QByteArray taken;
    for (const QByteArray& frame : whole.pdus) {
        taken += frame;
        require(frame.size() > 7 && frame.size() <= 7 + longestPdu, "a request has one to 253 octets");
        checkAnswer(frame.mid(7));
    }
    require(stream.startsWith(taken), "requests are the octets of the stream, in order");
    require(whole.broken || taken.size() + whole.pending == stream.size(), "nothing is lost");
    for (const int step : {1, 7}) {
        const MbapResult cut = decodeMbap(stream, step);
        require(cut.pdus == whole.pdus && cut.broken == whole.broken && cut.pending == whole.pending,
                "how the stream is cut does not matter");
    }
}

/// Pieces of the line: each with its length in seven bits of an octet; 0 is silence. The highest bit asks for
/// the checksum of all pieces since the last silence or checksum, which the fuzzer could not guess.
void rtu(fuzz::Input* input)
{
    constexpr quint8 deviceId = 1;
    RtuDecoder decoder(deviceId);
    QByteArray line;
    QByteArray unsealed;
    while (!input->isEmpty()) {
        const quint8 head = input->u8();
        QByteArray piece = input->take(head % 0x80);
        unsealed += piece;
        if (head > 0x80 && !unsealed.isEmpty()) {
            piece += rtuFrame(quint8(unsealed[0]), unsealed.mid(1)).right(2);
        }
        if (head == 0 || head > 0x80) {
            unsealed.clear();
        }
        line += piece;
        const std::optional<QByteArray> request = head == 0 ? decoder.silence() : decoder.receive(piece);
        require(head != 0 || !decoder.isPending(), "silence drops what was not recognised");
        if (request) {
            require(!request->isEmpty() && quint8(request->at(0)) < 0x80, "answers are not answered");
            require(line.contains(rtuFrame(deviceId, *request)),
                    "a request stands on the line, with its checksum");
            checkAnswer(*request);
        }
    }
    std::ignore = decoder.silence();
    const QByteArray request = rtuFrame(deviceId, QByteArray("\x03\x00\x00\x00\x01", 5));
    require(decoder.receive(request) == request.mid(1, 5),
            "whatever was on the line, the next request is heard");
}

} // namespace

// NOLINTNEXTLINE(readability-non-const-parameter)
extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    fuzz::QuietLog::install();
    new QCoreApplication(*argc, *argv); // lives as long as the process
    stage = new Stage;
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    fuzz::QuietLog::clear();
    fuzz::Input input(data, size);
    switch (input.u8() % 8) {
    case 0:
        init(input.rest());
        break;
    case 1:
        stage->scratch.configure({{0, 1000}, {65000, 536}});
        update(input.rest());
        break;
    case 2:
        mbap(input.rest());
        break;
    case 3:
        rtu(&input);
        break;
    default:
        const QByteArray pdu = input.rest().left(longestPdu);
        if (!pdu.isEmpty()) {
            checkAnswer(pdu);
        }
    }
    return 0;
}

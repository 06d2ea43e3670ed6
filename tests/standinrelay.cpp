// Stands in for a protection relay on a real network interface: watches one channel of a
// sampled-value stream and publishes a GOOSE stream in which one boolean is the trip.

#include "tests/liveprogram.h"

#include "virtualboard/wire/ethernetframes.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QMap>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>

#include <pcap/pcap.h>
#include <poll.h>

using namespace liveprogram;
using namespace std::chrono;
using Numbers = QMap<QString, int>;

namespace {

volatile std::sig_atomic_t interrupted = 0;

const struct
{
    const char *name, *standard, *text;
    int least, most;
} options[] = {
    {"sv-appid", "0x4000", "APPID of the sampled values", 0, 0xffff},
    {"channel", "1", "Entry of their dataset to watch", 1, 255},
    {"threshold", "1000", "Trip at this magnitude in counts", 1, 0x7fffffff},
    {"delay", "0", "Trip so many milliseconds after that", 0, 60000},
    {"reset", "100", "Reset after so many milliseconds below it", 1, 60000},
    {"goose-appid", "0x1000", "APPID of the GOOSE stream", 0, 0xffff},
    {"entries", "1", "Booleans in its dataset", 1, 16},
    {"entry", "1", "Which of them is the trip", 1, 16},
};

/// For sampled values, as soon as they come. Null after a complaint.
pcap_t *openInterface(const QByteArray &name)
{
    const char types[] = "ether proto 0x88ba or (vlan and ether proto 0x88ba)";
    char error[PCAP_ERRBUF_SIZE] = "";
    pcap_t *const handle = pcap_create(name.constData(), error);
    bpf_program filter = {};
    pcap_set_snaplen(handle, 2048);
    pcap_set_promisc(handle, 1);
    pcap_set_immediate_mode(handle, 1);
    const bool open = pcap_activate(handle) >= 0 && pcap_setnonblock(handle, 1, error) >= 0
        && pcap_compile(handle, &filter, types, 1, PCAP_NETMASK_UNKNOWN) >= 0
        && pcap_setfilter(handle, &filter) >= 0;
    if (!open)
        std::fprintf(stderr, "standinrelay: %s: %s\n", name.constData(), pcap_geterr(handle));
    pcap_freecode(&filter);
    return open ? handle : nullptr;
}

/// The state of the trip, sent when it changes, then after 2, 4, 8 ... ms, at last every second.
struct Trip
{
    pcap_t *const handle;
    const Numbers &numbers;
    bool on = false;
    int stNum = 0, sqNum = 0;
    system_clock::duration changed{};
    steady_clock::time_point due{};

    void set(bool now)
    {
        on = now;
        ++stNum;
        sqNum = 0;
        changed = system_clock::now().time_since_epoch();
        send();
        std::puts(on ? "trip" : "reset");
        std::fflush(stdout);
    }

    void send()
    {
        const qint64 ns = nanoseconds(changed).count(), second = 1'000'000'000;
        QByteArray data;
        for (int entry = 1; entry <= numbers["entries"]; ++entry)
            data += ber(0x83, be(on && entry == numbers["entry"], 1));
        const QByteArray t = be(ns / second, 4) + be((ns % second << 24) / second, 3) + char(0x0a);
        const QByteArray pdu = ber(0x80, "RELAY/LLN0$GO$trip") + ber(0x81, "\x0b\xb8")
            + ber(0x82, "RELAY/LLN0$trip") + ber(0x84, t) + ber(0x85, be(stNum, 4))
            + ber(0x86, be(sqNum, 4)) + ber(0x88, "\x01") + ber(0x8a, be(numbers["entries"], 1))
            + ber(0xab, data);
        const QByteArray frame = ethernet(0x88b8, numbers["goose-appid"], ber(0x61, pdu), false);
        pcap_inject(handle, frame.constData(), std::size_t(frame.size()));
        due = steady_clock::now() + milliseconds(std::min(2 << std::min(sqNum++, 9), 1000));
    }
};

bool isAbove(const QByteArray &frame, const Numbers &numbers)
{
    const virtualboard::EthernetFrame decoded = virtualboard::decodeEthernetFrame(frame);
    const auto *const values = std::get_if<virtualboard::SampledValues>(&decoded.pdu);
    return values && decoded.appId == numbers["sv-appid"]
        && values->entries.size() >= numbers["channel"]
        && qAbs(qint64(values->entries[numbers["channel"] - 1].value)) >= numbers["threshold"];
}

void run(pcap_t *handle, const Numbers &numbers)
{
    Trip trip{handle, numbers};
    trip.set(false);
    steady_clock::time_point pickedUp, lastAbove;
    bool isUp = false;
    while (interrupted == 0) {
        pcap_pkthdr *header = nullptr;
        const u_char *bytes = nullptr;
        while (pcap_next_ex(handle, &header, &bytes) == 1) {
            if (!isAbove({reinterpret_cast<const char *>(bytes), int(header->caplen)}, numbers))
                continue;
            lastAbove = steady_clock::now();
            pickedUp = isUp ? pickedUp : lastAbove;
            isUp = true;
        }
        const auto now = steady_clock::now();
        isUp = isUp && now < lastAbove + milliseconds(numbers["reset"]);
        if (trip.on != isUp && (!isUp || now >= pickedUp + milliseconds(numbers["delay"])))
            trip.set(isUp);
        else if (now >= trip.due)
            trip.send();
        pollfd waiting = {pcap_get_selectable_fd(handle), POLLIN, 0};
        poll(&waiting, 1, 1);
    }
}

} // namespace

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    for (const int signal : {SIGINT, SIGTERM})
        std::signal(signal, [](int) { interrupted = 1; });
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Trips when a sampled current is too large."));
    parser.addHelpOption();
    parser.addOption({QStringLiteral("interface"), QStringLiteral("Ethernet interface"), "name"});
    for (const auto &each : options)
        parser.addOption(
            {QString(each.name), QString(each.text), "number", QString(each.standard)});
    parser.process(application);
    Numbers numbers;
    for (const auto &each : options) {
        bool isNumber = false;
        const int value = parser.value(QString(each.name)).toInt(&isNumber, 0);
        if (!isNumber || value < each.least || value > each.most) {
            std::fprintf(stderr, "standinrelay: --%s: %d to %d expected\n", each.name, each.least,
                         each.most);
            return 2;
        }
        numbers[QString(each.name)] = value;
    }
    pcap_t *const handle = openInterface(parser.value(QStringLiteral("interface")).toLocal8Bit());
    if (!handle)
        return 2;
    run(handle, numbers);
    pcap_close(handle);
    return 0;
}

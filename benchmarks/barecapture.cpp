#include "benchmarks/barecapture.h"

#include <array>
#include <cstdio>

void BareCapture::append(const pcap_pkthdr &header, const u_char *frame)
{
    frames.push_back({header, bytes.size()});
    bytes.insert(bytes.end(), frame, frame + header.caplen);
}

std::string BareCapture::write(const char *path) const
{
    static std::vector<char> buffer(1 << 20);
    pcap_t *const handle =
        pcap_open_dead_with_tstamp_precision(DLT_EN10MB, 65535, PCAP_TSTAMP_PRECISION_NANO);
    std::FILE *const file = std::fopen(path, "wb");
    if (file)
        std::setvbuf(file, buffer.data(), _IOFBF, buffer.size());
    pcap_dumper_t *const dumper = file ? pcap_dump_fopen(handle, file) : nullptr;
    if (dumper) {
        for (const Frame &frame : frames)
            pcap_dump(reinterpret_cast<u_char *>(dumper), &frame.header,
                      bytes.data() + frame.offset);
        pcap_dump_close(dumper);
    }
    pcap_close(handle);
    return dumper ? std::string() : std::string("cannot write ") + path;
}

std::string BareCapture::read(const char *path)
{
    std::array<char, PCAP_ERRBUF_SIZE> error{};
    pcap_t *const handle =
        pcap_open_offline_with_tstamp_precision(path, PCAP_TSTAMP_PRECISION_NANO, error.data());
    if (!handle)
        return error.data();
    pcap_pkthdr *header = nullptr;
    const u_char *frame = nullptr;
    int result = 0;
    while ((result = pcap_next_ex(handle, &header, &frame)) == 1)
        append(*header, frame);
    const std::string reason = result == PCAP_ERROR ? pcap_geterr(handle) : "";
    pcap_close(handle);
    return reason;
}

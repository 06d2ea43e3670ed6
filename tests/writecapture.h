/// \file
/// Captures for programs that read them, written by libpcap.
#pragma once

#include "tests/testsupport.h"

#include <pcap/pcap.h>

#include <memory>

namespace testsupport {

/// Writes \a packets of \a linkType (DLT_...) to the file \a path, all at the time 0.
inline bool writeCapture(const QString &path, int linkType, const Frames &packets)
{
    const std::unique_ptr<pcap_t, decltype(&pcap_close)> kind(pcap_open_dead(linkType, 65535),
                                                              pcap_close);
    const std::unique_ptr<pcap_dumper_t, decltype(&pcap_dump_close)> file(
        pcap_dump_open(kind.get(), qPrintable(path)), pcap_dump_close);
    if (!file)
        return false;
    for (const QByteArray &packet : packets) {
        pcap_pkthdr header = {};
        header.caplen = header.len = bpf_u_int32(packet.size());
        pcap_dump(reinterpret_cast<uchar *>(file.get()), &header,
                  reinterpret_cast<const uchar *>(packet.constData()));
    }
    return pcap_dump_flush(file.get()) == 0;
}

} // namespace testsupport

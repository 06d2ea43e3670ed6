/// \file
/// The yardstick of captures: libpcap alone.
#pragma once

#include <pcap/pcap.h>

#include <cstddef>
#include <string>
#include <vector>

/// Frames in memory, to be written as often as wanted.
struct BareCapture
{
    struct Frame
    {
        pcap_pkthdr header; ///< with nanoseconds
        std::size_t offset;
    };

    void append(const pcap_pkthdr &header, const u_char *frame);
    /// Writes all frames into \a path, through a buffer of as many bytes as the board's. Returns
    /// why it cannot; empty if it could.
    [[nodiscard]] std::string write(const char *path) const;
    /// Reads the file at \a path. Returns as write() does.
    [[nodiscard]] std::string read(const char *path);

    std::vector<Frame> frames;
    std::vector<u_char> bytes;
};

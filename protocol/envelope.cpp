#include "protocol/envelope.h"

#include "protocol/hexfield.h"

#include <algorithm>
#include <cstring>

namespace envelope {

namespace {

using Pattern = std::array<char, 4>;

constexpr Pattern kAcknowledgement{'\x0f', '\x5a', '\xf0', '\xa5'};
constexpr Pattern kDataReply{'\x5a', '\x5a', '\x5a', '\x5a'};

// Of a data reply, counted from its pattern.
constexpr int kLengthOffset = 5;
constexpr int kPayloadOffset = 9;
static_assert(kMaxPayload == kDatagramSize - kPayloadOffset);

/// Position of \a pattern in the first \a size bytes of \a datagram, -1 if it is not there.
int indexOf(const Pattern &pattern, const char *datagram, int size)
{
    const char *end = datagram + size;
    const char *found = std::search(datagram, end, pattern.begin(), pattern.end());
    return found == end ? -1 : int(found - datagram);
}

} // namespace

int wrap(const QByteArray &frame, Datagram &datagram)
{
    const int frameSize = int(frame.size());
    const int paddedSize = frameSize + frameSize % 2;
    std::fill_n(datagram.begin(), 4, '\xa5');
    datagram[4] = '\0';
    hexfield::putLittleEndian16(&datagram[5], paddedSize + kCheckBytes);
    hexfield::putLittleEndian16(&datagram[7], paddedSize + kCheckBytes);

    char *padded = &datagram[kFrameOffset];
    std::memcpy(padded, frame.constData(), std::size_t(frameSize));
    std::fill(padded + frameSize, padded + paddedSize, '\0');

    char *check = padded + paddedSize;
    check[0] = check[1] = '\0';
    for (int i = 0; i < paddedSize; ++i)
        check[i % 2] = char(check[i % 2] ^ padded[i]);
    return kFrameOffset + paddedSize + kCheckBytes;
}

bool isAcknowledgement(const char *datagram, int size)
{
    return indexOf(kAcknowledgement, datagram, size) >= 0;
}

Answer answerIn(const char *datagram, int size)
{
    const int acknowledgement = indexOf(kAcknowledgement, datagram, size);
    const int dataReply = indexOf(kDataReply, datagram, size);
    if (dataReply >= 0 && (acknowledgement < 0 || dataReply < acknowledgement))
        return Answer::DataReply;
    return acknowledgement >= 0 ? Answer::Acknowledgement : Answer::None;
}

std::optional<DataReply> findDataReply(const char *datagram, int size)
{
    const int position = indexOf(kDataReply, datagram, size);
    if (position < 0)
        return std::nullopt;
    const auto byteAt = [&](int index) { return index < size ? quint8(datagram[index]) : 0; };
    const int length = byteAt(position + kLengthOffset) | byteAt(position + kLengthOffset + 1) << 8;
    return DataReply{position, position + kPayloadOffset, length};
}

} // namespace envelope

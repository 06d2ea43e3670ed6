#pragma once

#include "virtualboard/wire/limits.h"

#include <QString>

#include <array>

namespace virtualboard {

/// One analog channel of the board: an output that may also feed sampled values.
struct AnalogChannel
{
    int number; ///< on the link
    int first; ///< number of the channel of the same phase in the first group
    bool isVoltage; ///< in V, else in A
    const char *name;
};

/// All of them, each at its number.
constexpr std::array<AnalogChannel, kAnalogChannels> kAnalogTable = {{
    {0, 0, false, "Ia1"},
    {1, 0, false, "Ia2"},
    {2, 2, false, "Ib1"},
    {3, 2, false, "Ib2"},
    {4, 4, false, "Ic1"},
    {5, 4, false, "Ic2"},
    {6, 6, false, "In1"},
    {7, 6, false, "In2"},
    {8, 8, true, "Va1"},
    {9, 8, true, "Va2"},
    {10, 10, true, "Vb1"},
    {11, 10, true, "Vb2"},
    {12, 12, true, "Vc1"},
    {13, 12, true, "Vc2"},
    {14, 14, true, "Vn1"},
    {15, 14, true, "Vn2"},
}};

constexpr bool isInOrder(const std::array<AnalogChannel, kAnalogChannels> &table)
{
    for (int i = 0; i < kAnalogChannels; ++i) {
        const AnalogChannel &each = table[std::size_t(i)];
        const AnalogChannel &first = table[std::size_t(each.first)];
        if (each.number != i || first.first != each.first || first.isVoltage != each.isVoltage)
            return false;
    }
    return true;
}
static_assert(isInOrder(kAnalogTable), "a channel stands at its number, its first one likewise");

/// In a stream description: no analog channel feeds the dataset entry.
constexpr int kNoAnalogChannel = 0xff;

/// The channel, or null for any number that is none.
[[nodiscard]] constexpr const AnalogChannel *analogChannel(int number)
{
    return number >= 0 && number < kAnalogChannels ? &kAnalogTable[std::size_t(number)] : nullptr;
}

/// "Ia1" to "Vn2"; empty for a number that is none.
[[nodiscard]] inline QString channelName(int number)
{
    const AnalogChannel *const channel = analogChannel(number);
    return channel ? QString::fromLatin1(channel->name) : QString();
}

/// The channel that is called \a name, or null.
[[nodiscard]] inline const AnalogChannel *analogChannel(const QString &name)
{
    for (const AnalogChannel &each : kAnalogTable) {
        if (name == QLatin1String(each.name))
            return &each;
    }
    return nullptr;
}

} // namespace virtualboard

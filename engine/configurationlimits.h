/// \file
/// How much one test configuration can hold.
#pragma once

constexpr int kMaxSvStreams = 64; ///< the stream number has six bits
constexpr int kMaxSvChannels = 255; ///< a stream description counts them in one byte
constexpr int kMaxGooseStreams = 6; ///< one offset record each
constexpr int kSequenceGooseStreams = 4; ///< the first ones, which a state sequence can change
constexpr int kMaxGooseEntries = 65535; ///< in a published or subscribed dataset
constexpr int kMaxLightGroup = 31; ///< on one light port; a subscription has five bits for it

/// \file
/// What the board has of each thing, as far as the device link can name it.
#pragma once

namespace limits {

constexpr int kSteps = 5; ///< of a state sequence
constexpr int kBinaryOutputs = 4; ///< of a step
constexpr int kOutputPorts = 8; ///< on which streams are published
constexpr int kSvStreams = 64; ///< published; the stream number has six bits
constexpr int kSvChannels = 255; ///< of a published stream; its description counts them in one byte
constexpr int kGooseStreams = 6; ///< published
constexpr int kSequenceGooseStreams = 4; ///< the first ones, which a state sequence can change
constexpr int kGooseEntries = 0xffff; ///< of a published or subscribed dataset
constexpr int kLightPorts = 5; ///< on which GOOSE is subscribed
constexpr int kLightGroups = 31; ///< on one light port, from 1; a subscription has five bits for it
constexpr int kLogicChannels = 256; ///< logic binary inputs
constexpr int kOneByteOffset =
    0xff; ///< the last frame offset that the one byte of a command can name

} // namespace limits

/// \file
/// How much there is of everything, on this side of the link.
#pragma once

namespace virtualboard {

constexpr int kStepLimit = 5; ///< steps of a sequence: 0 to 4
constexpr int kAnalogChannels = 16; ///< analog channels: 0 to 15, see analogchannels.h
constexpr int kStreamLimit = 64; ///< streams of one kind: 0 to 63
constexpr int kLogicChannels = 256; ///< logic binary inputs: 0 to 255
constexpr int kPortLimit = 8; ///< output and light ports: 1 to 8

constexpr int kLargestFrame = 1518; ///< bytes of Ethernet with IEEE 802.1Q tag, without the FCS
constexpr int kLargestDatagram = 1600; ///< bytes of a command with its envelope
constexpr int kPeerBufferSize = 1600; ///< bytes of an answer that the board's peer reads

} // namespace virtualboard

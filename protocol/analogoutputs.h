/// \file
/// The sixteen analog outputs of the board.
#pragma once

#include <array>
#include <string_view>

namespace analogoutputs {

struct AnalogOutput
{
    std::string_view name;
    int wireChannel; ///< number in the commands; also the kind code of an SV channel that it feeds
    bool isCurrent; ///< else a voltage
};

/// In the order of the engine's CStep::outPara. Neighbours are the two outputs of one phase.
constexpr std::array<AnalogOutput, 16> kAnalogOutputs{{{"Va1", 8, false},
                                                       {"Va2", 9, false},
                                                       {"Vb1", 10, false},
                                                       {"Vb2", 11, false},
                                                       {"Vc1", 12, false},
                                                       {"Vc2", 13, false},
                                                       {"Vn1", 14, false},
                                                       {"Vn2", 15, false},
                                                       {"Ia1", 0, true},
                                                       {"Ia2", 1, true},
                                                       {"Ib1", 2, true},
                                                       {"Ib2", 3, true},
                                                       {"Ic1", 4, true},
                                                       {"Ic2", 5, true},
                                                       {"In1", 6, true},
                                                       {"In2", 7, true}}};

/// Index in kAnalogOutputs of the output \a name; the size of the table if there is none.
constexpr std::size_t indexOf(std::string_view name)
{
    std::size_t i = 0;
    while (i < kAnalogOutputs.size() && kAnalogOutputs[i].name != name)
        ++i;
    return i;
}

} // namespace analogoutputs

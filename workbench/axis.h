/// \file
/// The axis of a picture: which values it shows, where they lie, and which of them are labelled.
#pragma once

#include <QString>
#include <QVector>

namespace workbench {

class Axis
{
public:
    enum class Scale { Linear, Logarithmic };
    struct Tick
    {
        double value = 0;
        QString label; ///< empty for a small tick between two labels
    };

    /// \param least, most the ends, in any order; values that make no axis (equal, not finite, not
    /// above 0 on a logarithmic one) are replaced by such as do
    Axis(double least, double most, Scale scale = Scale::Linear);

    [[nodiscard]] double least() const { return m_least; }
    [[nodiscard]] double most() const { return m_most; }
    /// Where \a value lies: 0 at the least value, 1 at the largest one, beyond them outside. A
    /// value that a logarithmic axis cannot show lies at 0.
    [[nodiscard]] double place(double value) const;
    /// The value at \a place.
    [[nodiscard]] double at(double place) const;
    [[nodiscard]] bool contains(double value) const { return value >= m_least && value <= m_most; }

    /// Round values from the least one to the largest one: multiples of 1, 2 or 5 of a power of
    /// ten, on a logarithmic axis the decades, divided where there is room.
    /// \param mostLabels at least 1; there are no more labels than this
    [[nodiscard]] QVector<Tick> ticks(int mostLabels) const;
    /// The same axis, longer: its ends are round values.
    [[nodiscard]] Axis rounded(int mostLabels) const;

private:
    [[nodiscard]] double step(int mostLabels) const;
    [[nodiscard]] QVector<Tick> linearTicks(int mostLabels) const;
    [[nodiscard]] QVector<Tick> logarithmicTicks(int mostLabels) const;

    double m_least;
    double m_most;
    Scale m_scale;
};

} // namespace workbench

#pragma once

#include "simulation.h"

namespace Demo {

/// For a dictionary of which nothing is known: a few writable numbers go up and down between their bounds. About half
/// of them are left to the panel.
class SwingingNumbers : public Simulation
{
public:
    explicit SwingingNumbers(Storage& storage);

    std::string description() const override;
    std::vector<Row> rows() const override;
    void step() override;

private:
    struct Number
    {
        Item item;
        double lowest;
        double highest;
        double stride; ///< of the next step
    };

    static Number numberOf(const Item& item);
    void move(Number& number);

    Storage& m_storage;
    std::vector<Number> m_numbers;
};

} // namespace Demo

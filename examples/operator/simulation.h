#pragma once

#include "display.h"
#include "items.h"

#include <memory>
#include <string>
#include <vector>

namespace Demo {

/// A machine that changes its items. A run has `steps` steps, however long they take.
class Simulation
{
public:
    virtual ~Simulation() = default;

    /// What moves, for the user.
    virtual std::string description() const = 0;
    virtual std::vector<Row> rows() const = 0;
    virtual void step() = 0;
};

/// The moulding machine, when the storage holds the items of one; otherwise whatever numbers there are go up and down.
std::unique_ptr<Simulation> makeSimulation(Storage& storage, int steps);

} // namespace Demo

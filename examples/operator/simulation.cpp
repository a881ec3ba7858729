#include "simulation.h"

#include "mouldingmachine.h"
#include "swingingnumbers.h"

namespace Demo {

std::unique_ptr<Simulation> makeSimulation(Storage& storage, int steps)
{
    auto machine = std::make_unique<MouldingMachine>(storage, steps);
    if (machine->hasZones())
        return machine;
    return std::make_unique<SwingingNumbers>(storage);
}

} // namespace Demo

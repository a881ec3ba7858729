#pragma once

#include "simulation.h"

namespace Demo {

/// An injection moulding machine: its barrel heats up, then it makes parts. Items that the dictionary lacks are left
/// out.
class MouldingMachine : public Simulation
{
public:
    MouldingMachine(Storage& storage, int steps);

    bool hasZones() const { return !m_zones.empty(); }

    std::string description() const override;
    std::vector<Row> rows() const override;
    void step() override;

private:
    struct Zone
    {
        Item set;
        Item actual;
        Item duty;
    };

    void findZones();
    void switchOn();
    void heat();
    double heatZone(const Zone& zone, double ripple);
    void produce();
    void countCycle();
    void set(const char* name, const CkelVariant& value);
    void add(const char* name, long long amount);

    Storage& m_storage;
    std::vector<Zone> m_zones;
    const double m_cooling; ///< share of a zone's distance from its set point that a step leaves
    const int m_stepsPerPhase;
    int m_step = 0;
    int m_productionStep = 0;
    bool m_warm = false;
};

} // namespace Demo

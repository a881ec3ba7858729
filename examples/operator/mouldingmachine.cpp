#include "mouldingmachine.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace Demo {

namespace {

// Machine_State
enum : int
{
    StateHeating = 1,
    StateProduction = 3
};

// What Cycle_Phase goes through while a part is made: mould closing, clamp force build-up, injection, holding,
// plasticising, cooling, mould opening, ejecting.
constexpr std::array<int, 8> phases{1, 2, 4, 5, 6, 7, 8, 9};
constexpr int injection = 4;

constexpr double tolerance = 8; // K
constexpr double tenths = 10;

const std::vector<std::string>& stateWords()
{
    static const std::vector<std::string> words{"idle", "heating", "ready", "production", "alarm"};
    return words;
}

const std::vector<std::string>& phaseWords()
{
    static const std::vector<std::string> words{"stopped",       "mould closing", "clamping",     "nozzle forward",
                                                "injection",     "holding",       "plasticising", "cooling",
                                                "mould opening", "ejecting",      "part removal", "pause"};
    return words;
}

/// So that after the first 45 % of the run, 3 % of the way to the set point is left.
double coolingFor(int steps)
{
    constexpr double left = 0.03;
    constexpr double heatingShare = 0.45;
    return std::pow(left, 1 / (heatingShare * steps));
}

/// As a controller reports it.
double rounded(double value)
{
    return std::round(value * tenths) / tenths;
}

} // namespace

MouldingMachine::MouldingMachine(Storage& storage, int steps)
    : m_storage(storage), m_cooling(coolingFor(steps)), m_stepsPerPhase(std::max(1, steps / 100))
{
    findZones();
}

void MouldingMachine::findZones()
{
    constexpr int mostZones = 32;
    for (int i = 1; i <= mostZones; ++i) {
        const std::string name = "Barrel_Zone" + std::to_string(i);
        const Zone zone{m_storage.queryData(name + "_SetTemperature"), m_storage.queryData(name + "_ActualTemperature"),
                        m_storage.queryData(name + "_OutputDuty")};
        if (zone.set.ID != 0 && zone.actual.ID != 0)
            m_zones.push_back(zone);
    }
}

std::string MouldingMachine::description() const
{
    return "The barrel's " + std::to_string(m_zones.size()) + " zones heat up, then the machine makes parts.";
}

std::vector<Row> MouldingMachine::rows() const
{
    std::vector<Row> rows;
    for (const Zone& zone : m_zones)
        rows.push_back({zone.actual, zone.set, {}});
    const auto addRow = [&](const char* actual, const char* setPoint, const std::vector<std::string>& words) {
        const Item item = m_storage.queryData(actual);
        if (item.ID != 0)
            rows.push_back({item, m_storage.queryData(setPoint), words});
    };
    addRow("Machine_State", "", stateWords());
    addRow("Cycle_Phase", "", phaseWords());
    addRow("Cycle_Time_Last", "Cycle_Time_Set", {});
    addRow("Injection_PeakPressure_Actual", "", {});
    addRow("Production_Shots_Total", "", {});
    addRow("Production_GoodParts", "", {});
    return rows;
}

void MouldingMachine::step()
{
    if (m_step == 0)
        switchOn();
    ++m_step;
    heat();
    if (m_warm)
        produce();
}

void MouldingMachine::switchOn()
{
    constexpr unsigned long long pumpAndHeating = 0x3; // State_Outputs_Word1
    set("Barrel_HeatingOn", true);
    set("Hydraulic_PumpOn", true);
    set("State_Outputs_Word1", pumpAndHeating);
    set("Machine_State", int{StateHeating});
    set("Cycle_Phase", 0);
}

void MouldingMachine::heat()
{
    constexpr double swing = 0.4; // K
    double farthest = 0;
    for (std::size_t i = 0; i < m_zones.size(); ++i)
        farthest = std::max(farthest, heatZone(m_zones[i], swing * std::sin(m_step + static_cast<double>(i))));
    if (m_warm || farthest > tolerance)
        return;
    m_warm = true;
    set("Barrel_AllZonesInTolerance", true);
    set("Machine_State", int{StateProduction});
}

double MouldingMachine::heatZone(const Zone& zone, double ripple)
{
    constexpr double idleDuty = 15; // % that make up for losses
    constexpr double fullDuty = 100;
    const double wanted = m_storage.queryValue(zone.set.ID).toDouble();
    const double actual = m_storage.queryValue(zone.actual.ID).toDouble();
    const double next = wanted - (wanted - actual) * m_cooling + ripple;
    m_storage.updateValue(zone.actual.ID, rounded(next), true);
    m_storage.updateValue(zone.duty.ID, rounded(std::clamp(idleDuty + wanted - next, 0.0, fullDuty)), true);
    return std::abs(wanted - next);
}

void MouldingMachine::produce()
{
    constexpr double usualPressure = 940; // bar
    constexpr double pressureSwing = 25;
    const int steps = m_stepsPerPhase * static_cast<int>(phases.size());
    const int phase = phases.at(static_cast<std::size_t>(m_productionStep % steps / m_stepsPerPhase));
    set("Cycle_Phase", phase);
    if (phase == injection)
        set("Injection_PeakPressure_Actual", rounded(usualPressure + pressureSwing * std::sin(m_step)));
    if (++m_productionStep % steps == 0)
        countCycle();
}

void MouldingMachine::countCycle()
{
    constexpr double usualTime = 27.9; // s
    constexpr double timeSwing = 0.3;
    const auto cavities = std::max(1LL, m_storage.queryValue("Mould_Cavities").toLongLong());
    add("Production_Shots_Total", 1);
    add("Production_Shots_Job", 1);
    add("Production_GoodParts", cavities);
    add("Production_PartsRemaining", -cavities);
    add("Clamp_Cycles_Total", 1);
    set("Cycle_Time_Last", rounded(usualTime + timeSwing * std::sin(m_step)));
}

void MouldingMachine::set(const char* name, const CkelVariant& value)
{
    m_storage.updateValue(name, value, true);
}

void MouldingMachine::add(const char* name, long long amount)
{
    const long long sum = m_storage.queryValue(name).toLongLong() + amount;
    m_storage.updateValue(name, std::max(0LL, sum), true);
}

} // namespace Demo

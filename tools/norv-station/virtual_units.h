// Units that need no hardware: each is a box of its own with the real daemon and the real tool in it, a simulated
// board, and a wire to the station. They need no root.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "tools/norv-station/station.h"

struct VirtualUnit;

class VirtualUnits
{
  public:
    VirtualUnits();
    VirtualUnits(const VirtualUnits &) = delete;
    VirtualUnits &operator=(const VirtualUnits &) = delete;
    ~VirtualUnits(); // ends them all

    // Makes them, and gives their wires' ends to the station. `faults` tells by the number of a unit, from 1, what is
    // wrong with it: see virtual_fault_is_known. False, told, when one cannot be made.
    [[nodiscard]] bool start(size_t count, const std::map<size_t, std::string> &faults,
                             std::vector<StationPort> *ports);
    // What a station has to do with them.
    static void plan_fill(Plan *plan);

  private:
    std::vector<std::unique_ptr<VirtualUnit>> units_{};
};

// "test": the test of the USB port fails; "memory": the memory test does; "silent": the daemon ends on the way.
[[nodiscard]] bool virtual_fault_is_known(const std::string &fault);

#include "TarnSystem/TrafficCounters.h"

namespace tarn {
namespace {

std::uint64_t growth(std::uint64_t from, std::uint64_t to) {
    return to < from ? to : to - from;
}

} // namespace

KernelTables::ByteCounts TrafficCounters::delta(const KernelTables::ByteCounts &from,
                                                const KernelTables::ByteCounts &to) {
    return {growth(from.rx, to.rx), growth(from.tx, to.tx)};
}

} // namespace tarn

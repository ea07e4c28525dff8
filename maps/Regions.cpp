// How registers become regions.
#include <maps/Regions.h>

#include <Zint/Sizes.h>
#include <algorithm>
#include <numeric>

namespace Maps {
namespace {

class RegionMaker {
 public:
  explicit RegionMaker(const Plan& plan) : plan_(plan), order_(plan.map.registers.size()) {
    std::iota(order_.begin(), order_.end(), 0);
    std::stable_sort(order_.begin(), order_.end(),
                     [&](U32 a, U32 b) { return at(a).address < at(b).address; });
  }

  std::vector<Region> result() {
    for (std::size_t i = 0; i < order_.size();) {
      if (plan_.choices[order_[i]].rule) {
        i = add(i);
      } else {
        ++i;
      }
    }
    return std::move(regions_);
  }

 private:
  const Register& at(U32 which) const { return plan_.map.registers[which]; }
  // Whether b is the next entry after a, `stride` bytes on. `last` is the one before a, if any.
  bool follows(U32 a, U32 b, U64 stride) const {
    const Register &first = at(a), &second = at(b);
    return plan_.choices[b].rule && first.block == second.block &&
           first.layout->width == second.layout->width && first.array == second.array &&
           (first.array.empty() || second.index == first.index + 1) &&
           second.address - first.address == stride &&
           first.address >> 32 == (second.end() - 1) >> 32;
  }
  // Makes a region that begins with the i-th register; returns the first that is not in it.
  std::size_t add(std::size_t i) {
    const Register& first = at(order_[i]);
    const U32 size = first.layout->bytes();
    U64 stride = size;
    if (!first.array.empty() && i + 1 < order_.size()) {
      const U64 next = at(order_[i + 1]).address - first.address;
      if (next >= size && next < U64{1} << 32) stride = next;
    }
    Region region;
    region.address = first.address;
    region.entrySize = size;
    region.registers.push_back(order_[i]);
    std::size_t end = i + 1;
    while (end < order_.size() && follows(order_[end - 1], order_[end], stride)) {
      region.registers.push_back(order_[end++]);
    }
    region.entries = Zint::countOf(region.registers);
    // A span of entries that ends with the last one: what is behind it may be another register's.
    region.stride = region.entries > 1 ? static_cast<U32>(stride) : size;
    if (region.stride > size && reachesAnother(region, end)) {
      // The last element's gap holds another register: it is a region of its own.
      region.registers.pop_back();
      --region.entries;
      --end;
      if (region.entries == 1) region.stride = size;
    }
    name(region);
    regions_.push_back(std::move(region));
    return end;
  }
  bool reachesAnother(const Region& region, std::size_t end) const {
    if (end >= order_.size()) return false;
    return at(order_[end]).address < region.address + U64{region.stride} * region.entries;
  }
  void name(Region& region) const {
    const Register& first = at(region.registers.front());
    const Register& last = at(region.registers.back());
    region.name = plan_.map.nameOf(first);
    if (region.entries == 1) return;
    if (first.array.empty()) {
      region.name += ".." + last.name;
      return;
    }
    region.name = plan_.map.blocks[first.block].name + "." + first.array;
    // A part of an array says which.
    if (first.index != 0 || isContinued(last)) {
      region.name += "[" + std::to_string(first.index) + ".." + std::to_string(last.index) + "]";
    }
  }
  // Whether the array goes on behind this element: its elements stand together in the map.
  bool isContinued(const Register& last) const {
    const std::size_t next = static_cast<std::size_t>(&last - plan_.map.registers.data()) + 1;
    return next < plan_.map.registers.size() && plan_.map.registers[next].block == last.block &&
           plan_.map.registers[next].array == last.array;
  }

  const Plan& plan_;
  std::vector<U32> order_;
  std::vector<Region> regions_;
};

}  // namespace

bool isOfOneKind(const Plan& plan, const Region& region) {
  if (region.entries < 2) return false;
  const Choice& first = plan.choices[region.registers.front()];
  for (U32 e = 0; e < region.entries; ++e) {
    const Register& r = plan.map.registers[region.registers[e]];
    const Choice& choice = plan.choices[region.registers[e]];
    if (r.layout != plan.map.registers[region.registers.front()].layout ||
        r.name != r.array + "[" + std::to_string(e) + "]" || choice.rule != first.rule ||
        choice.mask != first.mask || choice.rewrite != first.rewrite ||
        choice.isOnce != first.isOnce) {
      return false;
    }
  }
  return true;
}

std::vector<Region> regionsOf(const Plan& plan) { return RegionMaker(plan).result(); }

}  // namespace Maps

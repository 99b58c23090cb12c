// VRF devices, and tables named as VRFs with the interfaces their rules select.
#include "Wexa/Paths.h"
#include "kernel/ImportParts.h"

#include <fmt/format.h>

#include <algorithm>

namespace VeltLinux {

std::string VrfLayout::vrfOfLink(int index) const {
   auto it = linkVrf.find(index);
   return it == linkVrf.end() ? std::string(VeltState::defaultVrfName) : it->second;
}

const std::string* VrfLayout::vrfOfTable(std::uint32_t table) const {
   static const std::string defaultName(VeltState::defaultVrfName);
   if (table == mainTable || table == localTable) return &defaultName;
   auto it = tableVrf.find(table);
   return it == tableVrf.end() ? nullptr : &it->second;
}

namespace {

// Interfaces that iif or oif rules send to `table`, by name, in rule order.
std::vector<std::string> interfacesSelecting(const KernelState& kernel, std::uint32_t table) {
   std::vector<std::string> names;
   for (const KernelRule& r : kernel.rules) {
      if (r.table != table) continue;
      for (const std::string& n : {r.iif, r.oif}) {
         if (!n.empty() && std::find(names.begin(), names.end(), n) == names.end()) {
            names.push_back(n);
         }
      }
   }
   return names;
}

class LayoutBuilder {
 public:
   explicit LayoutBuilder(const KernelState& kernel) : kernel_(kernel) {}

   void addVrf(const std::string& name, std::uint32_t table, const std::string& source) {
      if (std::string problem = Wexa::Paths::componentProblem(name); !problem.empty()) {
         throw ImportError(fmt::format("{}: VRF name {} cannot name a table: {}", source,
                                       Wexa::Paths::shownName(name), problem));
      }
      for (const auto& v : layout_.vrfs) {
         if (v.name == name) throw ImportError(fmt::format("VRF {} is named twice", name));
      }
      if (auto it = layout_.tableVrf.find(table); it != layout_.tableVrf.end()) {
         throw ImportError(fmt::format("{}: table {} is already VRF {}'s", source, table,
                                       it->second));
      }
      VeltState::VrfEntry v;
      v.name = name;
      v.id = Vrf::VrfIdMap::VrfId(static_cast<std::uint32_t>(layout_.vrfs.size() + 1));
      layout_.vrfs.push_back(v);
      layout_.tableVrf[table] = name;
   }

   void addMember(const std::string& vrf, const KernelLink& link) {
      auto [it, fresh] = layout_.linkVrf.emplace(link.index, vrf);
      if (!fresh && it->second != vrf) {
         throw ImportError(fmt::format("interface {} is in VRF {} and in VRF {}", link.name,
                                       it->second, vrf));
      }
   }

   const KernelLink& link(const std::string& name, const std::string& source) const {
      const KernelLink* l = kernel_.link(name);
      if (!l) throw ImportError(fmt::format("{}: no interface {}", source, name));
      return *l;
   }

   VrfLayout take() { return std::move(layout_); }

 private:
   const KernelState& kernel_;
   VrfLayout layout_;
};

} // namespace

VrfLayout layoutVrfs(const KernelState& kernel, const ImportOptions& options) {
   LayoutBuilder b(kernel);
   for (const KernelLink& dev : kernel.links) {
      if (dev.kind != "vrf") continue;
      b.addVrf(dev.name, dev.vrfTable, "VRF device " + dev.name);
      for (const KernelLink& member : kernel.links) {
         if (member.master == dev.index) b.addMember(dev.name, member);
      }
   }
   for (const TableVrf& t : options.tableVrfs) {
      const std::string source = fmt::format("VRF table {}={}", t.name, t.table);
      b.addVrf(t.name, t.table, source);
      std::vector<std::string> names =
          t.interfaces.empty() ? interfacesSelecting(kernel, t.table) : t.interfaces;
      for (const std::string& name : names) b.addMember(t.name, b.link(name, source));
   }
   return b.take();
}

} // namespace VeltLinux

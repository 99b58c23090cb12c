#include "NodeJson.h"

#include "Kor/TypeInfo.h"

namespace Velt::Tool {

nlohmann::json nodeJson(const Pelin::Node& node, int depth) {
   const Kor::TypeInfo* type = node.typeData();
   nlohmann::json out = nlohmann::json::object();
   if (!type) return out;
   out["type"] = type->name;
   for (const Kor::AttrInfo& a : type->attrs) {
      switch (a.kind) {
      case Kor::AttrKind::value: out[a.name] = a.get(node); break;
      case Kor::AttrKind::node: {
         Pelin::Ptr<const Pelin::Node> child = a.node(node);
         if (!child) {
            out[a.name] = nullptr;
         } else if (depth > 0 && child->typeData()) {
            out[a.name] = nodeJson(*child, depth - 1);
         } else {
            out[a.name] = child->typeData() ? child->typeData()->name : "node";
         }
         break;
      }
      case Kor::AttrKind::collection: {
         nlohmann::json entries = nlohmann::json::object();
         a.forEach(node, [&](const Kor::CollectionEntry& e) {
            if (e.node && depth > 0) {
               entries[e.key] = nodeJson(*e.node, depth - 1);
            } else if (e.node) {
               entries[e.key] = e.node->typeData() ? e.node->typeData()->name : "node";
            } else {
               entries[e.key] = e.value;
            }
         });
         out[a.name] = std::move(entries);
         break;
      }
      case Kor::AttrKind::action: break;
      }
   }
   return out;
}

std::string nodeLine(const Pelin::Node& node) {
   const Kor::TypeInfo* type = node.typeData();
   if (!type) return "node";
   std::string out = type->name + "{";
   bool first = true;
   for (const Kor::AttrInfo& a : type->attrs) {
      if (a.kind != Kor::AttrKind::value) continue;
      out += (first ? "" : ", ") + a.name + "=" + a.get(node);
      first = false;
   }
   return out + "}";
}

} // namespace Velt::Tool

#include "Quarn/TableInfo.h"

namespace Quarn::Fib {

std::string TableInfo::fecMountPath(Lumo::AddressFamily af, const L3::VrfName& vrfName,
                                    const std::string& table) {
   std::string path = "forwardingGen/" + std::string(vrfName.view()) + "/";
   if (af == Lumo::AddressFamily::ipv4_) path += "v4/";
   if (af == Lumo::AddressFamily::ipv6_) path += "v6/";
   return path + table;
}

} // namespace Quarn::Fib

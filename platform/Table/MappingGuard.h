// Keeps a table file cut short under its mapping from killing the process: a SIGBUS
// inside a watched mapping replaces that mapping with zero pages and marks it lost, so
// the read that faulted completes and its caller finds the loss when it checks the
// region.
//
// The handler is installed, process-wide, with the first watch; faults outside watched
// mappings go on to the handler that was there before (or the default action). An agent
// that installs its own SIGBUS handler afterwards must chain to the one it replaces.
#pragma once
#include <cstddef>
#include <string>
#include <vector>

namespace Table::MappingGuard {

// Watches [base, base + bytes), mapped with protection `prot`, for file `name`. Returns a
// handle for the calls below; raises Pelin::Exception when too many mappings are watched.
int watch(void* base, std::size_t bytes, int prot, const std::string& name);
// Stops watching; the caller unmaps afterwards.
void unwatch(int handle);
// Whether a fault replaced the mapping with zero pages.
bool lost(int handle);
// The files of every watched mapping that was lost, for a writer to name.
std::vector<std::string> lostFiles();

} // namespace Table::MappingGuard

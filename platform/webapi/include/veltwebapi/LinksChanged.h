// How the host tells API modules that links may have changed, so that an application can drop what it
// keeps for links that are gone, off or past their end. A module that wants to know exports one C
// function besides its tables:
//
//   extern "C" void LinksChanged(const char* sharing_id);
//
// It is called after the answer to an owner's successful call of a method with "post_only", with the
// parameter "sharing_id" of that call, which may be any text; null when the call had none. And every
// few seconds with null in some idle worker, because time passes too, and other hosts may share the
// store. So null means that any link may have changed. The process has the service's ids, and must
// have them afterwards. The function throws nothing. Only one call runs at a time in a process, but
// several processes may be in it at once. A call may be lost when a worker dies.
#pragma once

namespace VELT {

using LinksChangedFunc = void (*)(const char* sharing_id);

}  // namespace VELT

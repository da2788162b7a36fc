// The functions by which an application's plugin library changes the pages of its links. A plugin
// needs only this header and the link record's of the appliance.
//
// A library exports one or both of the functions below as extern "C". The application's
// configuration names the library once for each function that is to be called. For every page the
// library is opened, one function is called, and the library is closed: nothing that it keeps in
// memory is there the next time. Calls come one at a time, from a process that serves other
// requests afterwards.
//
// A function returns true if `result` is to be used. When it returns false, or `result` has another
// type than the function's, or more than 1 MiB of text, the page is shown without it. When it
// throws an exception, or JsonCpp can't convert a value to the string that is needed, this one
// request is affected: the page lacks the function's tags, and the session script or the login
// fails.
//
// The arguments:
//   entry    borrowed for the call. Its `get_` operations and ToJSON may be used.
//   status   borrowed for the call. Never null. The caller may pass any text, so don't rely on its
//            values.
//   extra    borrowed for the call. For the preview of a link that isn't stored, an object with
//            what it is to show; else null.
//   result   owned by the caller, null at first; the function fills it. The caller uses and frees
//            it after the library is closed, so it must not point into the library: no
//            Json::StaticString.
//
// A plugin must not write to standard output, where the answer to the web server goes (its text is
// dropped), and must start no thread that outlives the call. After a login it may run with root's
// effective ids, so it must not use file names that a visitor supplies.
//
// The interface passes C++ objects. So a plugin is built with GCC 12 or later, whose libstdc++ has
// the same ABI, and links libstdc++, libjsoncpp.so.25 and libveltsharing.so, which has the record's
// operations, dynamically. If the arguments or their meaning ever change, the functions get new
// names and the old ones stay. New members of results may be added; a release ignores those that it
// doesn't know.
#pragma once

#include <json/value.h>

#include "veltsharing/Entry.h"

namespace VELT::sharing {

using PluginLibFunc = bool (*)(const record::Entry& entry, const char* status,
                               const Json::Value& extra, Json::Value& result);

}  // namespace VELT::sharing

extern "C" {

// The plugin "custom_page". `result` is an object; each member may be left out:
//   "JSFILE"   array of strings: addresses of scripts, loaded by the page in this order
//   "CSS"      array of strings: addresses of stylesheets
//   "SESSION"  object: the page's scripts find it as VELT.TALD.ExtraSession. Every visitor can read
//              it, even one who is not logged in.
//   "PRIVATE"  any value: only a successful login gives it to the page's scripts
// Addresses are written into the page as they are. One without a version, a parameter "v", gets the
// version of the file that it names below the web root, so that browsers fetch a changed file
// again. A tag is cut after 1023 bytes.
__attribute__((visibility("default"))) bool CustomPageFunc(
    const VELT::sharing::record::Entry& entry, const char* status, const Json::Value& extra,
    Json::Value& result);

// The plugin "open_graph" (https://ogp.me). `result` is an array; each of its objects becomes one
// <meta> tag: the members' names are the attributes' names, written as they are, and their values
// the attributes' values, escaped.
__attribute__((visibility("default"))) bool OpenGraphFunc(const VELT::sharing::record::Entry& entry,
                                                          const char* status,
                                                          const Json::Value& extra,
                                                          Json::Value& result);
}

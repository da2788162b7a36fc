// What an application's plugin library exports so as to take part in the pages of its links. This
// header and the link record's are all that a plugin needs of the appliance.
//
// A library exports one or both of the functions below under their plain names. The application's
// configuration names it, once for each function that is to be called. For every page the library
// is opened, one function called, and the library closed: nothing that it keeps in memory is there
// the next time. Calls come one at a time from a process that serves other requests afterwards.
//
// A function returns true when `result` is to be used. False, a null `result` or one of another
// type than the function's own adds nothing to the page, which is shown all the same; so does a
// result of more than 1 MiB of text. An exception that leaves a function, or a value that JsonCpp
// can't turn into the text that is wanted, costs the visitor this one request: the page lacks the
// function's tags, the session script and the login fail.
//
// Whose is what:
//   entry    borrowed for the call. Its `get_` operations and ToJSON may be used.
//   status   borrowed for the call. Never null; its text is the caller's own and may be anything,
//            so don't build on its values.
//   extra    borrowed for the call. What a preview of a link that isn't stored was asked to show,
//            else null.
//   result   the caller's, null at first; the function fills it. The caller uses and frees it after
//            the library is closed, so it must not point into the library: no Json::StaticString.
//
// A plugin does not write to standard output, which is the web server's answer (the text would be
// dropped), starts no thread that outlives the call, and may run with root's effective ids (after a
// login): it takes no file name from the visitor.
//
// The interface passes C++ objects, so a plugin is built against the same libstdc++ (GCC 12's or a
// later one's ABI, which is the same) and the same libjsoncpp.so.25 that the appliance has, shares
// them (no static linking of either), and links libveltsharing.so for the record's operations. A
// change of the arguments or of what they mean would come with new function names beside the old
// ones; new members of results may be added, and those that a release doesn't know are ignored.
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
//              it, also one who is not logged in.
//   "PRIVATE"  any value: given to the page's scripts by a successful login only
// Addresses are written into the page as they are. One that stands below the web root without a
// version of its own (a parameter "v") is given the file's, so that a changed file is fetched anew.
// A tag of more than 1023 bytes is cut there.
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

// The part of the spool that holds unfinished uploads, of all links:
//
//   open/LINK.ID     what has arrived of an upload, a file of the link's owner, locked (flock(2))
//                    while it changes; of one that comes whole, from its beginning to its end. Its
//                    ID says how large the whole is. The folder is locked while an upload begins, so
//                    that sums stay true.
//   in/LINK/ID.json  what is known of an upload, for some time also of a complete one
//   in/LINK/done     its size counts the link's complete uploads; locked while it changes
//
// Several processes may use it at once. Call these with root's ids (see Ids.h).
#pragma once

#include <json/value.h>
#include <sys/types.h>

#include <cstdint>
#include <ctime>
#include <string>
#include <vector>

#include "apps/files/Configuration.h"
#include "apps/files/Spool.h"

namespace VELT::files {

inline constexpr const char* kIn = "in";
inline constexpr const char* kOpen = "open";

// What stands in place of a link's id for the uploads of an owner into folders of theirs.
std::string OwnKey(uid_t owner);
bool IsOwnKey(const std::string& link);

// Paths below the spool. `link` is the id in the link's address, or an OwnKey.
std::string FolderOf(const std::string& link);
std::string FileOf(const std::string& link, const std::string& id);
std::string AboutOf(const std::string& link, const std::string& id);
std::string DoneOf(const std::string& link);

// How an upload comes: in pieces, each by a call of its own, or whole by one call.
enum class Arrival { kPieces, kWhole };

// A new id, which nobody can guess, for a file of `size` bytes.
std::string NewUploadId(std::int64_t size, Arrival arrival);
Arrival ArrivalOf(const std::string& id);
// Whether the text, which comes from a client, has the form of an id.
bool IsUploadId(const std::string& text);

struct Unfinished {
  std::string link;
  std::string id;
  uid_t owner;
  std::int64_t size;      // of the whole file
  std::int64_t received;  // bytes
  std::time_t changed;    // when the last piece arrived
};

// Leaves out, and removes, those that were given up: after a day without a piece, or an hour without a
// first one; one that comes whole as soon as its worker is gone.
std::vector<Unfinished> ReadUnfinished(int spool);

// What is known of an upload: an object with its "name" (see ToText), "size", and whether it is "done";
// null when nothing is.
Json::Value ReadAbout(const Spool& spool, const std::string& link, const std::string& id);

// Removes an upload, after the piece that is just being written. One that gets complete by that piece
// is no longer unfinished and stays. One that comes whole is removed at once: its worker finds that its
// file has no name any more, and can't give it one in the folder.
void RemoveUnfinished(int spool, const Unfinished& upload);

// The same for the upload `id` of a link, or with an empty one for all of the link's. Whether there were any.
bool RemoveUnfinishedOf(int spool, const std::string& link, const std::string& id);

// Removes what is known of complete uploads of a link that ended before `oldest`.
void RemoveReceipts(int spool, const std::string& link, std::time_t oldest);

// Removes all that is kept of a link but its unfinished uploads.
void RemoveLink(int spool, const std::string& link);

// The links of which something is kept.
std::vector<std::string> LinksIn(int spool);

// The bytes that uploads may still take on the file system of `folder`: what is free less the reserve,
// so it may be negative.
std::int64_t RoomOn(int folder, const Configuration& configuration);

}  // namespace VELT::files

// Uploads of one link. Each is a file that belongs to the link's owner. Until it is complete it has a
// name in the spool (see Inbox.h), and none in the folder that it is for, where it then gets its name or
// the next that is free ("a (2).txt").
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "apps/files/Inbox.h"
#include "apps/files/Share.h"
#include "apps/files/Spool.h"
#include "veltsys/Descriptor.h"

namespace VELT::files {

// Made for one call. Several processes may work on the same link at once.
class UploadStore {
 public:
  // `link` is the id in the link's address. Throws Refusal.
  UploadStore(const Share& share, std::string link);

  struct State {
    std::int64_t offset;    // bytes received
    std::int64_t size;      // of the whole file
    std::string name = {};  // that the complete file got; empty before
  };

  // Begins the upload in pieces of a file called `name`, which may have folders before it that are made
  // when they are missing, and returns the upload's id. Throws Refusal:
  // kNoUploads, kUploadLimit, kNoSpace. All unfinished uploads together announce no more than there
  // is room for, those of a link at most half of it, those of an owner three quarters.
  std::string Begin(const std::string& name, std::int64_t size);

  // Knows a complete upload for an hour or more. Throws Refusal(kNoUpload).
  State StateOf(const std::string& id);

  // Appends a piece at `offset`, which must be the upload's own. After the last piece the name that the
  // file got is returned. On return the piece is on the disk. Throws Refusal; of a piece that can't be
  // written nothing is kept.
  std::optional<std::string> Add(const std::string& id, std::int64_t offset,
                                 const std::string& piece);

  // Fills the buffer as far as there are bytes, and waits for the first; 0: there are no more.
  using Source = std::function<std::size_t(char* buffer, std::size_t size)>;

  // Takes a whole file and returns the name that it got; nothing, keeping nothing, when the source ends
  // before. Within the same limits, and throws Refusal, as Begin and Add; kNoUpload when the upload was
  // removed meanwhile. If the process dies, what has arrived is removed like what was given up.
  std::optional<std::string> Store(const std::string& name, std::int64_t size,
                                   const Source& source);

 private:
  struct Upload;

  std::string Begin(const std::string& name, std::int64_t size, Arrival arrival, Descriptor& file);
  bool Fill(int file, std::int64_t size, const Source& source) const;
  void MustFit(std::int64_t size, std::int64_t room, int done) const;
  void MustHaveRoom(int folder, std::int64_t bytes) const;
  Upload Open(const std::string& id);
  void Finish(const std::string& id, const State& state);
  void Drop(const std::string& id) const;

  const Share& share_;
  const Spool spool_;
  const std::string link_;
};

}  // namespace VELT::files

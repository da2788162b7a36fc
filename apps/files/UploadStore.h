// Uploads that are not whole yet. Each is a file of the link's owner, without a name in the folder
// that it is for; the spool has its name until then.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "Share.h"
#include "Spool.h"

namespace VELT::files {

// One per call; several processes may work on the same link at once.
class UploadStore {
 public:
  // Of the link whose id in the store is `link`. Throws Refusal.
  UploadStore(const Share& share, std::int64_t link);

  struct State {
    std::int64_t offset;  // how much is there
    std::int64_t size;    // of the whole file
  };

  // Room for a file that will be called `name`; returns the upload's id. Throws Refusal: kNoUploads,
  // kUploadLimit, kNoSpace.
  std::string Begin(const std::string& name, std::int64_t size);

  // Throws Refusal(kNoUpload).
  State StateOf(const std::string& id);

  // Appends a piece at `offset`, which must be where the upload stands. With the last the file gets
  // its name in the folder, or the next that is free ("a (2).txt"), and that is returned. What was
  // told as written is on the disk. Throws Refusal; the upload then stands where it stood.
  std::optional<std::string> Add(const std::string& id, std::int64_t offset,
                                 const std::string& piece);

 private:
  struct Upload;

  Upload Open(const std::string& id);
  std::string Publish(const Upload& upload);
  void Forget(const std::string& id, bool done);

  const Share& share_;
  const Spool spool_;
  const std::string folder_;  // the link's, in the spool
};

}  // namespace VELT::files

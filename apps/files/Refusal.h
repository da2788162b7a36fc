// Why a call is refused. Thrown inside the application; the handlers in Api.cpp turn it into an
// answer.
#pragma once

#include <json/value.h>

#include <utility>

#include "veltwebapi/ErrorCodes.h"

namespace VELT::files {

enum Code {
  kNoLink = kErrorLogin,
  kNoSuchLink = kErrorSharingID,
  kNoVisit = kErrorSharingSession,
  kOthersLink = kErrorOwner,
  kAddressDenied = kErrorAddress,
  kUsedUp = kErrorExpireTimes,
  kNoRoot = 2000,         // no root of this name, or not for this account
  kNotFound = 2001,       // no such file or folder, or not readable for the link's owner
  kWrongKind = 2002,      // a file where a folder is needed, or the other way round
  kNothingShared = 2003,  // the link's data name nothing that can be shared
  kNoUploads = 2004,      // the link takes no uploads
  kUploadLimit = 2005,    // the file is too large, or the link has all its files
  kNoSpace = 2006,        // the disk or the owner's quota is full
  kWrongOffset = 2007,    // the detail's "offset" is where the upload goes on
  kNoUpload = 2008,       // no upload of this id
  kUnavailable = 2009,    // not set up; the log says what is missing
  kNoPicture = 2010,      // no small picture can be made of the file
};

struct Refusal {
  explicit Refusal(Code reason, Json::Value text = Json::Value())
      : code(reason), detail(std::move(text)) {}

  Code code;
  Json::Value detail;
};

}  // namespace VELT::files

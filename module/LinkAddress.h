// A link's address, its QR code, and its JSON form in answers.
#pragma once

#include <json/value.h>

#include <string>
#include <vector>

#include "veltsharing/Entry.h"
#include "veltwebapi/APIRequest.h"

namespace VELT {

// The address under which visitors open the link with this id.
std::string LinkURL(const APIRequest* request, const std::string& sharing_id);

// Makes `qrcode` a data URI (RFC 2397) of a PNG image that encodes `url` at error correction level
// H. Returns false and leaves it unchanged when qrencode(1) can't be started or had to be ended,
// which is logged, or prints nothing.
bool GenerateQRCode(const std::string& url, std::string& qrcode);

// Makes `out` the JSON form of Entry::ToJSON plus "url" and, when the image can be made, "qrcode".
void FormEntryJSON(const APIRequest* request, const sharing::record::Entry& entry,
                   Json::Value& out);

// Makes `out` an array of these forms, in the order of the entries. A few images are made
// at a time.
void FormEntriesJSON(const APIRequest* request, const std::vector<sharing::record::Entry>& entries,
                     Json::Value& out);

}  // namespace VELT

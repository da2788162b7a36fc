// The plugin library of a photo album. A link shows the pictures that its application data lists:
//
//   {"title": "On the coast", "photos": ["harbour", "hills"]}
//
// Without a list it shows all pictures. Everybody sees the title and the number of pictures, but
// only a visitor who has logged in sees the pictures.
#include <string>

#include "veltplugin/RenderPlugin.h"
#include "veltsharing/Entry.h"

namespace {

using VELT::sharing::record::Entry;

struct Photo {
  const char* name;
  const char* caption;
};

constexpr Photo kPhotos[] = {
    {"harbour", "The harbour at dusk"},
    {"hills", "Behind the village"},
    {"lighthouse", "The lighthouse"},
};

// The album's application data: of the preview, or else of the link. Any client can send it, so
// values may be missing or have the wrong type.
Json::Value AlbumOf(const Entry& entry, const Json::Value& extra) {
  if (extra.isObject()) return extra["sharing_preview_params"];
  Json::Value link;
  entry.ToJSON(link);
  return link["app"];
}

std::string TitleOf(const Entry& entry, const Json::Value& album) {
  if (album.isObject() && album["title"].isString()) return album["title"].asString();
  return entry.get_protect_title().empty() ? "Photo album" : entry.get_protect_title();
}

bool Shows(const Json::Value& album, const std::string& name) {
  if (!album.isObject() || !album["photos"].isArray()) return true;
  for (const Json::Value& listed : album["photos"]) {
    if (listed == name) return true;
  }
  return false;
}

Json::Value PhotosOf(const Json::Value& album) {
  Json::Value photos(Json::arrayValue);
  for (const Photo& photo : kPhotos) {
    if (!Shows(album, photo.name)) continue;
    Json::Value& shown = photos.append(Json::Value(Json::objectValue));
    shown["src"] = std::string("/pkg/photo-album/photos/") + photo.name + ".svg";
    shown["caption"] = photo.caption;
  }
  return photos;
}

Json::Value MetaTag(const char* property, const std::string& content) {
  Json::Value tag;
  tag["property"] = property;
  tag["content"] = content;
  return tag;
}

}  // namespace

bool CustomPageFunc(const Entry& entry, const char* /*status*/, const Json::Value& extra,
                    Json::Value& result) {
  const Json::Value album = AlbumOf(entry, extra);
  const Json::Value photos = PhotosOf(album);
  result["JSFILE"].append("/pkg/photo-album/album.js");
  result["CSS"].append("/pkg/photo-album/album.css");
  result["SESSION"]["title"] = TitleOf(entry, album);
  result["SESSION"]["count"] = photos.size();
  result["PRIVATE"]["photos"] = photos;
  return true;
}

bool OpenGraphFunc(const Entry& entry, const char* /*status*/, const Json::Value& extra,
                   Json::Value& result) {
  result.append(MetaTag("og:type", "website"));
  // These tags are public. For a protected link they show only its title.
  if (entry.get_protect_type() != Entry::ProtectType::kNone) {
    result.append(MetaTag("og:title", TitleOf(entry, Json::Value())));
    return true;
  }
  const Json::Value album = AlbumOf(entry, extra);
  const Json::ArrayIndex count = PhotosOf(album).size();
  result.append(MetaTag("og:title", TitleOf(entry, album)));
  result.append(
      MetaTag("og:description", count == 1 ? "1 picture" : std::to_string(count) + " pictures"));
  return true;
}

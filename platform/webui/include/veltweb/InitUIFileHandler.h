// The UI modules that are installed below the web root, /usr/velt/web.
#pragma once

#include <json/value.h>

#include <string>

// A module is a folder <vendor>/<group>/<Module> with
//   config.json            an object; each member describes one class "<vendor>.<group>.<Name>" of
//                          the module
//   *.css                  its stylesheets
//   texts/<language>.json  an object of texts, one file for each language; "enu" (English) is used
//                          for missing languages and texts
// Folders and stylesheets are ignored if their names have other characters than ASCII letters,
// digits, '-', '_' and, of stylesheets, '.'. A JSON file that is larger than 1 MiB, a symbolic
// link, or not a JSON object is treated as missing. Without config.json there is no module.
//
// One object belongs to one thread at a time.
class InitUIFileHandler {
 public:
  // A class with a "project" is only for that application's pages. It is left out unless the
  // project is `project` or `every_project` is true. A module all of whose classes are left out is
  // left out too. The texts are copied.
  InitUIFileHandler(const char* language, bool every_project, const char* project);

  // Reads the files and sets these members of the object `data`:
  //   "JSConfig"  object: "<vendor>/<group>/<Module>" -> the module's config.json
  //   "CSSFiles"  array: "<vendor>/<group>/<Module>/<file>.css", folder by folder and name by name
  //   "Strings"   object: "<vendor>.<group>.<Module>" -> its texts
  void GetInitData(Json::Value& data);

 private:
  void AddModule(const std::string& vendor, const std::string& group, const std::string& name,
                 Json::Value& data) const;
  bool KeepClasses(Json::Value& config) const;
  Json::Value ReadTexts(const std::string& folder) const;

  std::string language_;
  bool every_project_;
  std::string project_;
};

#include "weblib/json_reply.h"

#include <json-c/json.h>

#include <cstdio>

const char kAppVersion[] = "6.0.1.6963";
const char kAppBuild[] = "20250804";

namespace {

// Owns one json-c object for the duration of a reply.
class JsonObject {
 public:
  JsonObject() : obj_(json_object_new_object()) {}
  ~JsonObject() { json_object_put(obj_); }
  JsonObject(const JsonObject&) = delete;
  JsonObject& operator=(const JsonObject&) = delete;

  void add_string(const char* key, const char* value) {
    if (obj_ != nullptr) json_object_object_add(obj_, key, json_object_new_string(value ? value : ""));
  }
  void add_int(const char* key, int value) {
    if (obj_ != nullptr) json_object_object_add(obj_, key, json_object_new_int(value));
  }
  void add_version() {
    add_string("version", kAppVersion);
    add_string("build", kAppBuild);
  }
  // Prints the object and a line feed; nothing when memory ran out.
  void print() const {
    if (obj_ != nullptr) puts(json_object_to_json_string(obj_));
  }

 private:
  json_object* obj_;
};

}  // namespace

int print_json_header() {
  printf("Content-type: application/json; charset=\"UTF-8\"%c%c%c%c", '\r', '\n', '\r', '\n');
  return 0;
}

int print_html_header() {
  printf("Content-type: text/html%c%c%c%c", '\r', '\n', '\r', '\n');
  return 0;
}

bool status_carries_version(int status) {
  if (status == 3 || status == 15) return false;
  return (status & ~8) != 0;
}

int print_status(int status) {
  JsonObject o;
  if (status_carries_version(status)) o.add_version();
  o.add_int("status", status);
  o.add_string("success", "true");
  o.print();
  return 0;
}

int print_permission(int permission, int play) {
  JsonObject o;
  o.add_version();
  o.add_int("permission", permission);
  o.add_int("play", play);
  o.add_string("success", "true");
  o.print();
  return 0;
}

int print_status_result(int status, const char* text) {
  JsonObject o;
  o.add_int("status", status);
  o.add_string("result", text);
  o.print();
  return 0;
}

int print_status_error(int status, int err_code, const char* err_msg) {
  JsonObject o;
  o.add_int("status", status);
  o.add_string("success", "true");
  o.add_int("err_code", err_code);
  o.add_string("err_msg", err_msg);
  o.print();
  return 0;
}

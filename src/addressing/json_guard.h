// Owns one json-c object tree for a scope.
#ifndef SLT_ADDRESSING_JSON_GUARD_H_
#define SLT_ADDRESSING_JSON_GUARD_H_

#include <json-c/json.h>

#include <memory>

struct JsonPut {
  void operator()(json_object* o) const { json_object_put(o); }
};
using JsonGuard = std::unique_ptr<json_object, JsonPut>;

#endif  // SLT_ADDRESSING_JSON_GUARD_H_

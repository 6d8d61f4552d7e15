#include "component/host_roles.h"

#include <cstdio>
#include <utility>

#include "component/cls_form_wiz.h"
#include "component/identity.h"

namespace formwiz {
namespace {

// A number as the runtime writes it: 15 significant digits, no trailing
// zeros, and the exponent form ("1E+15", "1E-05") below 1E-4 and from 1E15
// on. That is exactly C's %.15G.
std::string NumberText(double number) {
  if (number == 0) return "0";  // also -0, which the runtime writes as "0"
  char buffer[32];
  std::snprintf(buffer, sizeof buffer, "%.15G", number);
  return buffer;
}

ObjectRegistry MakeThreadRegistry() {
  ObjectRegistry registry;
  registry.Register(kXmlDocumentProgId,
                    [] { return std::make_shared<XmlDocumentObject>(); });
  registry.Register(kProgId, [] { return std::make_shared<clsFormWiz>(); });
  return registry;
}

}  // namespace

bool Variant::ToText(std::string& out) const {
  switch (kind) {
    case Kind::kString:
      out = text;
      return true;
    case Kind::kNumber:
      out = NumberText(number);
      return true;
    case Kind::kEmpty:
    case Kind::kNull:
    case Kind::kObject:
      return false;
  }
  return false;
}

ObjectRegistry& ObjectRegistry::Current() {
  // Objects live on the thread that made them, so each thread creates
  // through its own registry.
  thread_local ObjectRegistry registry = MakeThreadRegistry();
  return registry;
}

void ObjectRegistry::Register(std::string prog_id, Factory factory) {
  factories_[std::move(prog_id)] = std::move(factory);
}

void ObjectRegistry::Unregister(std::string_view prog_id) {
  if (auto it = factories_.find(prog_id); it != factories_.end()) {
    factories_.erase(it);
  }
}

HostObjectPtr ObjectRegistry::Create(std::string_view prog_id) const {
  auto it = factories_.find(prog_id);
  if (it == factories_.end() || !it->second) {
    Raise(err::kCannotCreateObject);
  }
  return it->second();
}

}  // namespace formwiz

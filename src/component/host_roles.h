// What the editor must offer the component, as abstract roles, and the
// registry through which objects are created by ProgID. src/host implements
// the roles over an in-memory page; the editor application fills the
// registry.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "component/failure.h"
#include "formdoc/kelxml.h"

namespace formwiz {

// Every object the host hands out or creates by ProgID.
class HostObject {
 public:
  virtual ~HostObject() = default;
};
using HostObjectPtr = std::shared_ptr<HostObject>;

// The object behind `object`. Calling through an unset reference is the
// runtime's Failure 91, whichever host call it was.
template <typename T>
T& Deref(const std::shared_ptr<T>& object) {
  if (!object) Raise(err::kObjectNotSet);
  return *object;
}

// `object` as the role `Role`: null stays null, an object of another kind is
// a type mismatch (Failure 13), as binding it to a typed reference is.
template <typename Role>
std::shared_ptr<Role> AsRole(const HostObjectPtr& object) {
  if (!object) return nullptr;
  auto role = std::dynamic_pointer_cast<Role>(object);
  if (!role) Raise(err::kTypeMismatch);
  return role;
}

// A value of a host property that may hold anything, as HTMLData may.
struct Variant {
  enum class Kind { kEmpty, kNull, kString, kNumber, kObject };
  Kind kind = Kind::kEmpty;
  std::string text;      // kString
  double number = 0;     // kNumber
  HostObjectPtr object;  // kObject

  static Variant String(std::string s) {
    return {Kind::kString, std::move(s), 0, nullptr};
  }
  static Variant Number(double n) { return {Kind::kNumber, {}, n, nullptr}; }
  static Variant Null() { return {Kind::kNull, {}, 0, nullptr}; }
  static Variant Object(HostObjectPtr o) {
    return {Kind::kObject, {}, 0, std::move(o)};
  }
  // The value as a string, the way the runtime converts it: a number with at
  // most 15 significant digits, "3", "1.5", "1E+15", "1E-05". Empty, null
  // and object values have no text: false, and `out` is left alone.
  bool ToText(std::string& out) const;
};

// The HTML object of a page element.
class HtmlObject : public HostObject {
 public:
  virtual Variant GetHTMLData() = 0;
  virtual void PutHTMLData(const std::string& value) = 0;
  virtual void PutHTMLSource(const std::string& value) = 0;
  virtual void PutDisplayName(const std::string& value) = 0;
  virtual void PutHTMLPicture(const std::vector<uint8_t>& bytes) = 0;
};

// The editor's handle of a new object in the page.
class PageItem : public HostObject {
 public:
  virtual std::shared_ptr<HtmlObject> GetHTMLObject() = 0;
  // The last call on a new object; the editor may call OnOpen from inside.
  virtual void UpdateItem(int32_t flags, Variant& out) = 0;
};

// QlnHTMLUtils.QlnTextSelection: places new objects into a document.
class TextSelection : public HostObject {
 public:
  virtual void PutQuillanDO(const HostObjectPtr& doc) = 0;
  // Places a new object of `prog_id`; no object when nothing was placed.
  virtual std::shared_ptr<PageItem> InsertHTMLObject(
      const std::string& prog_id) = 0;
};

// The object that KelXml.KelXmlDocument names: a document to parse into.
class XmlDocumentObject : public HostObject {
 public:
  KelXmlDocument document;
};

// Creates objects by ProgID. One registry per thread; a ProgID may be
// registered anew, which replaces its factory. A factory may give no object
// (null) or raise a failure, as the platform's creation can.
class ObjectRegistry {
 public:
  using Factory = std::function<HostObjectPtr()>;

  // This thread's registry. It starts with KelXml.KelXmlDocument and the
  // component's own class registered.
  static ObjectRegistry& Current();

  void Register(std::string prog_id, Factory factory);
  void Unregister(std::string_view prog_id);
  // The new object, or null; an unknown ProgID raises Failure 429.
  HostObjectPtr Create(std::string_view prog_id) const;

 private:
  std::map<std::string, Factory, std::less<>> factories_;
};

// Creates an object by ProgID through this thread's registry.
inline HostObjectPtr CreateObject(std::string_view prog_id) {
  return ObjectRegistry::Current().Create(prog_id);
}

}  // namespace formwiz

// The editor stand-in: a page document whose objects hold the four
// properties the component writes, the text selection that places new
// objects, the page item, and fault injection at every host call.
//
// Every host call is logged by name in the page's `calls`, in the order the
// component makes them, so that the order of writes can be checked and a
// transcript can show it.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "component/failure.h"
#include "component/host_roles.h"

namespace formwiz {
class clsFormWiz;
}  // namespace formwiz

namespace formwiz::host {

// How a host call misbehaves on purpose.
struct Fault {
  enum class Kind {
    kFailure,     // the call raises `failure`
    kNoObject,    // a creation or InsertHTMLObject gives no object
    kCallOnOpen,  // UpdateItem calls OnOpen on the new object, nested
  };
  Kind kind = Kind::kFailure;
  Failure failure;

  static Fault Raising(Failure failure) {
    return {Kind::kFailure, std::move(failure)};
  }
  static Fault NoObject() { return {Kind::kNoObject, {}}; }
  static Fault CallOnOpen() { return {Kind::kCallOnOpen, {}}; }
};

// Names of the host calls, as faults and the call log know them. A fault of
// a kind that a call cannot show (an UpdateItem that gives "no object") is
// ignored there.
namespace call {
inline constexpr char kCreateSelection[] = "createSelection";
inline constexpr char kCreateDocument[] = "createDocument";
inline constexpr char kInsertHTMLObject[] = "InsertHTMLObject";
inline constexpr char kGetHTMLObject[] = "GetHTMLObject";
inline constexpr char kUpdateItem[] = "UpdateItem";
inline constexpr char kPutDisplayName[] = "put.DisplayName";
inline constexpr char kPutHTMLSource[] = "put.HTMLSource";
inline constexpr char kPutHTMLData[] = "put.HTMLData";
inline constexpr char kPutHTMLPicture[] = "put.HTMLPicture";
// Logged only: no fault is looked up for these.
inline constexpr char kQuillanDO[] = "QuillanDO";
inline constexpr char kGetHTMLData[] = "get.HTMLData";
inline constexpr char kReleasePageItem[] = "release.PageItem";
}  // namespace call

using Faults = std::map<std::string, Fault, std::less<>>;

class PageDocument;

// One object of the page. A property never written is absent (nullopt).
class PageObject : public HtmlObject {
 public:
  // `page` may be empty: the object then shows no faults and logs nothing.
  explicit PageObject(std::weak_ptr<PageDocument> page)
      : page_(std::move(page)) {}

  Variant GetHTMLData() override;
  void PutHTMLData(const std::string& value) override;
  void PutHTMLSource(const std::string& value) override;
  void PutDisplayName(const std::string& value) override;
  void PutHTMLPicture(const std::vector<uint8_t>& bytes) override;

  std::string prog_id;
  std::optional<std::string> display_name;
  std::optional<std::string> html_source;
  // HTMLData as the host holds it: any value. Absent reads as empty.
  std::optional<Variant> html_data;
  // Reading HTMLData raises this, when set.
  std::optional<Failure> html_data_read_fault;
  std::optional<std::vector<uint8_t>> html_picture;
  // UpdateItem calls on this object, a failing one included.
  int update_item_calls = 0;

 private:
  // Logs the call and raises its fault, if the page is still there.
  void Enter(std::string_view name) const;

  std::weak_ptr<PageDocument> page_;
};

// The page: its objects in order, the faults its roles show and the log of
// the calls made on them. Make it with std::make_shared: its objects and
// roles refer back to it.
class PageDocument : public HostObject,
                     public std::enable_shared_from_this<PageDocument> {
 public:
  std::vector<std::shared_ptr<PageObject>> objects;
  Faults faults;
  // Every host call, by the names of `call`, in order.
  std::vector<std::string> calls;
  // Runs at each call as it is logged, before its fault; for a test that
  // looks at the component's state at that moment. It must not throw: it
  // also runs when a page item is released.
  std::function<void(std::string_view call)> on_call;
  // What UpdateItem does under the "OnOpen" fault. Unset: OnOpen on the new
  // object through a fresh component object (OpenWithFreshComponent).
  std::function<void(const std::shared_ptr<PageObject>&)> on_open_from_update;

  // Appends an object, as one that was in the page before the first call.
  std::shared_ptr<PageObject> AddObject();

  // Logs `name` and runs on_call.
  void Log(std::string_view name);
  // Logs `name` and raises its failure, when a failure fault is set for it.
  void Enter(std::string_view name);
  // The fault of `name`, or none.
  const Fault* FindFault(std::string_view name) const;

  // Registers QlnHTMLUtils.QlnTextSelection and KelXml.KelXmlDocument in
  // this thread's registry, obeying this page's faults. After the page is
  // gone they behave as if it had no faults.
  void RegisterRoles();
};

// QlnHTMLUtils.QlnTextSelection: places new objects into the PageDocument
// given through QuillanDO.
class PageSelection : public TextSelection {
 public:
  void PutQuillanDO(const HostObjectPtr& doc) override;
  // Raises 91 without a document and 13 when it is no PageDocument.
  std::shared_ptr<PageItem> InsertHTMLObject(
      const std::string& prog_id) override;

 private:
  HostObjectPtr doc_;
};

// What the editor does from inside UpdateItem when it opens the new object:
// creates a component by the object's ProgID and calls OnOpen on it. Gives
// that component, so that a caller can read its Result.
std::shared_ptr<clsFormWiz> OpenWithFreshComponent(
    const std::shared_ptr<PageDocument>& page,
    const std::shared_ptr<PageObject>& object);

}  // namespace formwiz::host

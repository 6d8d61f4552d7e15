// The editor stand-in: a page document whose objects hold the four
// properties the component writes, the text selection that places new
// objects, the page item, and fault injection at every host call.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "component/failure.h"
#include "component/host_roles.h"

namespace formwiz::host {

// How a host call misbehaves on purpose.
struct Fault {
  enum class Kind {
    kFailure,   // the call raises `failure`
    kNoObject,  // a creation or InsertHTMLObject gives no object
    kCallOnOpen,  // UpdateItem calls OnOpen on the new object, nested
  };
  Kind kind = Kind::kFailure;
  Failure failure;
};

// Fault names: "createSelection", "createDocument", "InsertHTMLObject",
// "GetHTMLObject", "UpdateItem", "put.DisplayName", "put.HTMLSource",
// "put.HTMLData", "put.HTMLPicture".
using Faults = std::map<std::string, Fault, std::less<>>;

class PageDocument;

// One object of the page. A property never written is absent (nullopt).
class PageObject : public HtmlObject {
 public:
  explicit PageObject(PageDocument* page) : page_(page) {}

  Variant GetHTMLData() override;
  void PutHTMLData(const std::string& value) override;
  void PutHTMLSource(const std::string& value) override;
  void PutDisplayName(const std::string& value) override;
  void PutHTMLPicture(const std::vector<uint8_t>& bytes) override;

  std::string prog_id;
  std::optional<std::string> display_name;
  std::optional<std::string> html_source;
  // HTMLData as the host holds it: any value. Absent until written.
  std::optional<Variant> html_data;
  // Reading HTMLData raises this, when set.
  std::optional<Failure> html_data_read_fault;
  std::optional<std::vector<uint8_t>> html_picture;
  int update_item_calls = 0;

 private:
  PageDocument* page_;  // outlives its objects' use by the component
};

// The page: its objects in order, and the faults that its roles show.
class PageDocument : public HostObject {
 public:
  std::vector<std::shared_ptr<PageObject>> objects;
  Faults faults;
  // Called by UpdateItem under the kCallOnOpen fault, with the new object.
  std::function<void(const std::shared_ptr<PageObject>&)> on_open_from_update;

  // Raises the failure of `name` when a failure fault is set for it.
  void MaybeFail(std::string_view name) const;
  // The fault of `name`, or none.
  const Fault* FindFault(std::string_view name) const;

  // Registers QlnHTMLUtils.QlnTextSelection and KelXml.KelXmlDocument in
  // this thread's registry, obeying this page's faults. The page must
  // outlive the registrations (or `Unregister` them).
  void RegisterRoles();
};

// QlnHTMLUtils.QlnTextSelection over a PageDocument given through QuillanDO.
class PageSelection : public TextSelection {
 public:
  explicit PageSelection(PageDocument* page) : page_(page) {}
  void PutQuillanDO(const HostObjectPtr& doc) override;
  std::shared_ptr<PageItem> InsertHTMLObject(
      const std::string& prog_id) override;

 private:
  PageDocument* page_;
  HostObjectPtr doc_;
};

}  // namespace formwiz::host

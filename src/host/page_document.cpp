#include "host/page_document.h"

#include <utility>

#include "component/cls_form_wiz.h"
#include "component/identity.h"

namespace formwiz::host {
namespace {

// The editor's handle of one new object. It keeps the page alive for as
// long as the component holds it, and logs its release, which the component
// makes inside its guarded stretch.
class PageItemImpl : public PageItem {
 public:
  PageItemImpl(std::shared_ptr<PageDocument> page,
               std::shared_ptr<PageObject> object)
      : page_(std::move(page)), object_(std::move(object)) {}
  ~PageItemImpl() override { page_->Log(call::kReleasePageItem); }
  PageItemImpl(const PageItemImpl&) = delete;
  PageItemImpl& operator=(const PageItemImpl&) = delete;

  std::shared_ptr<HtmlObject> GetHTMLObject() override {
    page_->Enter(call::kGetHTMLObject);
    return object_;
  }

  void UpdateItem(int32_t /*flags*/, Variant& /*out*/) override {
    ++object_->update_item_calls;
    page_->Enter(call::kUpdateItem);
    const Fault* fault = page_->FindFault(call::kUpdateItem);
    if (!fault || fault->kind != Fault::Kind::kCallOnOpen) return;
    if (page_->on_open_from_update) {
      page_->on_open_from_update(object_);
    } else {
      OpenWithFreshComponent(page_, object_);
    }
  }

 private:
  std::shared_ptr<PageDocument> page_;
  std::shared_ptr<PageObject> object_;
};

// A creation by ProgID as the platform does it, with the page's fault for
// `name`: no object, a failure, or the object that `make` gives.
template <typename Make>
HostObjectPtr CreateWithFault(const std::weak_ptr<PageDocument>& weak_page,
                              std::string_view name, Make make) {
  if (auto page = weak_page.lock()) {
    page->Enter(name);
    const Fault* fault = page->FindFault(name);
    if (fault && fault->kind == Fault::Kind::kNoObject) return nullptr;
  }
  return make();
}

}  // namespace

void PageObject::Enter(std::string_view name) const {
  if (auto page = page_.lock()) page->Enter(name);
}

Variant PageObject::GetHTMLData() {
  if (auto page = page_.lock()) page->Log(call::kGetHTMLData);
  if (html_data_read_fault) Raise(*html_data_read_fault);
  return html_data.value_or(Variant{});
}

void PageObject::PutHTMLData(const std::string& value) {
  Enter(call::kPutHTMLData);
  html_data = Variant::String(value);
}

void PageObject::PutHTMLSource(const std::string& value) {
  Enter(call::kPutHTMLSource);
  html_source = value;
}

void PageObject::PutDisplayName(const std::string& value) {
  Enter(call::kPutDisplayName);
  display_name = value;
}

void PageObject::PutHTMLPicture(const std::vector<uint8_t>& bytes) {
  Enter(call::kPutHTMLPicture);
  html_picture = bytes;
}

std::shared_ptr<PageObject> PageDocument::AddObject() {
  objects.push_back(std::make_shared<PageObject>(weak_from_this()));
  return objects.back();
}

void PageDocument::Log(std::string_view name) {
  calls.emplace_back(name);
  if (on_call) on_call(name);
}

void PageDocument::Enter(std::string_view name) {
  Log(name);
  const Fault* fault = FindFault(name);
  if (fault && fault->kind == Fault::Kind::kFailure) Raise(fault->failure);
}

const Fault* PageDocument::FindFault(std::string_view name) const {
  auto it = faults.find(name);
  return it == faults.end() ? nullptr : &it->second;
}

void PageDocument::RegisterRoles() {
  // The registry outlives any page, so it holds the page weakly.
  std::weak_ptr<PageDocument> weak_page = weak_from_this();
  ObjectRegistry& registry = ObjectRegistry::Current();
  registry.Register(kTextSelectionProgId, [weak_page] {
    return CreateWithFault(weak_page, call::kCreateSelection,
                           [] { return std::make_shared<PageSelection>(); });
  });
  registry.Register(kXmlDocumentProgId, [weak_page] {
    return CreateWithFault(weak_page, call::kCreateDocument, [] {
      return std::make_shared<XmlDocumentObject>();
    });
  });
}

void PageSelection::PutQuillanDO(const HostObjectPtr& doc) {
  doc_ = doc;
  if (auto page = std::dynamic_pointer_cast<PageDocument>(doc)) {
    page->Log(call::kQuillanDO);
  }
}

std::shared_ptr<PageItem> PageSelection::InsertHTMLObject(
    const std::string& prog_id) {
  auto page = AsRole<PageDocument>(doc_);
  if (!page) Raise(err::kObjectNotSet);
  page->Enter(call::kInsertHTMLObject);
  const Fault* fault = page->FindFault(call::kInsertHTMLObject);
  if (fault && fault->kind == Fault::Kind::kNoObject) return nullptr;
  std::shared_ptr<PageObject> object = page->AddObject();
  object->prog_id = prog_id;
  return std::make_shared<PageItemImpl>(std::move(page), std::move(object));
}

std::shared_ptr<clsFormWiz> OpenWithFreshComponent(
    const std::shared_ptr<PageDocument>& page,
    const std::shared_ptr<PageObject>& object) {
  auto component = AsRole<clsFormWiz>(CreateObject(object->prog_id));
  if (component) component->OnOpen(object, page, 0);
  return component;
}

}  // namespace formwiz::host

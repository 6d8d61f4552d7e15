// The commits: a finished definition reaches a page object as its stored
// definition, its HTML, its display name and, for a new object, its picture.
#include "component/commit.h"

#include <filesystem>
#include <fstream>
#include <limits>
#include <system_error>
#include <utility>
#include <vector>

#include "actionoptions/frm_action_options.h"
#include "component/cls_form_wiz.h"
#include "component/identity.h"
#include "component/utils.h"
#include "formdoc/form_doc.h"

namespace formwiz {
namespace {

// The picture's length must fit the signed 16 bits it was always counted in.
constexpr uintmax_t kMaxPictureBytes = std::numeric_limits<int16_t>::max();

// The runtime's number for a file that cannot be reached: 53 when it is not
// there, 75 for any other reason.
int32_t FileErrorNumber(const std::error_code& error) {
  return error == std::errc::no_such_file_or_directory ||
                 error == std::errc::not_a_directory
             ? err::kFileNotFound
             : err::kPathFileAccess;
}

// The placeholder file as raw bytes. The length is taken first, as the
// runtime did, so a file that is too long is an overflow before anything is
// opened. Nothing looks at its kind or content.
std::vector<uint8_t> ReadPicture(const std::string& name) {
  namespace fs = std::filesystem;
  std::error_code error;
  const fs::file_status status = fs::status(name, error);
  if (error) Raise(FileErrorNumber(error));
  if (!fs::is_regular_file(status)) Raise(err::kPathFileAccess);
  const uintmax_t length = fs::file_size(name, error);
  if (error) Raise(FileErrorNumber(error));
  if (length > kMaxPictureBytes) Raise(err::kOverflow);

  // An empty file gives an empty picture.
  std::vector<uint8_t> bytes(length);
  std::ifstream file(name, std::ios::binary);
  if (!file) Raise(err::kPathFileAccess);
  file.read(reinterpret_cast<char*>(bytes.data()),
            static_cast<std::streamsize>(bytes.size()));
  if (static_cast<uintmax_t>(file.gcount()) != length) {
    Raise(err::kPathFileAccess);
  }
  return bytes;
}

// Lowers bInUse when it goes out of scope, on a failure as well.
class InUseGuard {
 public:
  InUseGuard() : bInUse_(frmActionOptions::Instance().bInUse) {
    bInUse_ = true;
  }
  ~InUseGuard() { bInUse_ = false; }
  InUseGuard(const InUseGuard&) = delete;
  InUseGuard& operator=(const InUseGuard&) = delete;

 private:
  bool& bInUse_;
};

// The last call on a new object. UpdateItem may come back into OnOpen; the
// guard covers that call and the release of the item, and nothing else. The
// item comes in by value so that this is where it is let go.
void UpdateItemGuarded(std::shared_ptr<PageItem> item) {
  InUseGuard guard;
  Variant ignored;
  item->UpdateItem(0, ignored);
  item.reset();
}

}  // namespace

std::string FinishFormHtml(const KelXmlElement& form) {
  // Both report their own failures, and the HTML is written regardless: at
  // worst without qln_SortOrder, or with a shorter list.
  std::string order;
  CollectFieldOrder(form, order);
  SetHiddenField(form, "qln_SortOrder", order, true);
  form.RemoveAttribute("defaultaction");
  form.RemoveAttribute("uitype");
  return form.Xml();
}

std::string clsFormWiz::PlaceholderFileName() const {
  // mvarPath is a folder of this platform, so the name is joined with its
  // separator, "/". Like the editor's own build, nothing is tested or
  // normalised: a `src` that names a sub-folder must use "/" as well.
  return mvarPath + "/" + mvarPlaceholderSrc;
}

void clsFormWiz::RewriteExistingObject(
    const std::shared_ptr<HtmlObject>& HTMLobj, const KelXmlElement& node) {
  Trapped(code::kOnOpen, [&] {
    // Taken before assembly, which consumes the definition.
    const std::string stored = mvarImpl.Xml();
    if (!AssembleForm(mvarImpl, mvarFormIndex)) {
      ReportInternalError(code::kInsert, 0, {});
      return;
    }
    HtmlObject& object = Deref(HTMLobj);
    object.PutDisplayName(mvarDisplayName);
    const std::string html = FinishFormHtml(node);
    object.PutHTMLSource(html);
    object.PutHTMLData(stored);
    // HTMLPicture is left alone: the object keeps the picture it has.
  });
}

void clsFormWiz::InsertNewObject(
    const std::shared_ptr<TextSelection>& selection,
    const KelXmlElement& node) {
  Trapped(code::kInsert, [&] {
    const std::string stored = mvarImpl.Xml();
    if (!AssembleForm(mvarImpl, mvarFormIndex)) {
      ReportInternalError(code::kInsert, 0, {});
      return;
    }
    std::shared_ptr<PageItem> item = Deref(selection).InsertHTMLObject(kProgId);
    // The editor placed nothing: no message, and the tree stays assembled.
    if (!item) return;
    const std::shared_ptr<HtmlObject> object = item->GetHTMLObject();
    Deref(object).PutDisplayName(mvarDisplayName);
    const std::string html = FinishFormHtml(node);
    object->PutHTMLSource(html);
    object->PutHTMLData(stored);
    // Without a picture there is no last call, and bInUse stays down.
    if (mvarPlaceholderSrc.empty()) return;
    object->PutHTMLPicture(ReadPicture(PlaceholderFileName()));
    UpdateItemGuarded(std::move(item));
  });
}

void clsFormWiz::RewriteStoredForm(const std::shared_ptr<HtmlObject>& HTMLobj,
                                   const KelXmlElement& form) {
  // The new stored data is the form as the options left it, uitype and
  // defaultaction included and without a qln_SortOrder, so the object stays
  // a stored form.
  const std::string stored = form.Xml();
  const std::string html = FinishFormHtml(form);
  HtmlObject& object = Deref(HTMLobj);
  object.PutHTMLSource(html);
  object.PutHTMLData(stored);
}

}  // namespace formwiz

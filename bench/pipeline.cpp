#include "bench/pipeline.h"

#include <string>

#include "component/commit.h"
#include "formdoc/form_doc.h"
#include "formdoc/kelxml.h"

namespace formwiz::bench {

std::string RunPipeline(const std::string& definition) {
  KelXmlDocument doc;
  if (!doc.LoadXml(definition)) return {};
  const KelXmlNode impl = doc.Root().FirstChild();
  if (!AssembleForm(impl, kFormIndex)) return {};
  return FinishFormHtml(FirstFormChild(impl));
}

}  // namespace formwiz::bench

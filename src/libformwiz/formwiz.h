// libformwiz: the form wizard component for a host editor. This header is
// all a host includes: the component (clsFormWiz), the roles the host
// implements for it (HtmlObject, PageItem, TextSelection, the object
// registry, the ProgIDs it asks for), the XML tree its definitions are kept in
// and the parsing of them ahead, the failures host code raises, and the Ui
// through which the component shows dialogs and message boxes. See "Embedding
// the component" in the README.
#pragma once

#include "component/cls_form_wiz.h"
#include "component/failure.h"
#include "component/host_roles.h"
#include "component/identity.h"
#include "formdoc/kelxml.h"
#include "formdoc/parse_ahead.h"
#include "formwiz/version.h"
#include "toolkit/ui.h"

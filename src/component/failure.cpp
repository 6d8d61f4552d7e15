#include "component/failure.h"

namespace formwiz {

const char* RuntimeDescription(int32_t number) {
  switch (number) {
    case err::kInvalidArgument:
      return "Invalid procedure call or argument";
    case err::kOverflow:
      return "Overflow";
    case err::kOutOfMemory:
      return "Out of memory";
    case err::kSubscriptOutOfRange:
      return "Subscript out of range";
    case err::kTypeMismatch:
      return "Type mismatch";
    case err::kFileNotFound:
      return "File not found";
    case err::kPathFileAccess:
      return "Path/File access error";
    case err::kObjectNotSet:
      return "Object variable or With block variable not set";
    case err::kCannotCreateObject:
      return "ActiveX component can't create object";
    default:
      return "";
  }
}

void Raise(int32_t number) { throw RuntimeFailure(number); }

Failure CurrentFailure() {
  try {
    throw;
  } catch (const Failure& f) {
    return f;
  } catch (const std::bad_alloc&) {
    return RuntimeFailure(err::kOutOfMemory);
  } catch (const std::length_error&) {
    return RuntimeFailure(err::kOutOfMemory);
  } catch (const std::out_of_range&) {
    return RuntimeFailure(err::kSubscriptOutOfRange);
  } catch (const std::overflow_error&) {
    return RuntimeFailure(err::kOverflow);
  } catch (const std::exception& e) {
    // Anything else the standard library raises is a bad argument to it; its
    // own text says more than the runtime's would.
    return Failure{err::kInvalidArgument, e.what()};
  } catch (...) {
    return RuntimeFailure(err::kInvalidArgument);
  }
}

}  // namespace formwiz

// SPDX-License-Identifier: Apache-2.0
#include "extension/ErrorText.hpp"

#include "core/DatabaseError.hpp"

namespace tolva {

std::string errorText(std::exception_ptr const& error) {
  try {
    std::rethrow_exception(error);
  } catch (DatabaseError const& databaseError) {
    return databaseError.errorDescription();
  } catch (std::exception const& other) {
    return other.what();
  } catch (...) {
    return "unknown error";
  }
}

}  // namespace tolva

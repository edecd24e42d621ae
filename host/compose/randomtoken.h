#ifndef QUOREL_HOST_COMPOSE_RANDOMTOKEN_H
#define QUOREL_HOST_COMPOSE_RANDOMTOKEN_H

#include <string>

namespace host {

/// 26 digits and small letters, of 130 bits from the system's random source, which nobody can
/// guess. False when it has none to give.
bool random_token(std::string& token);

}  // namespace host

#endif

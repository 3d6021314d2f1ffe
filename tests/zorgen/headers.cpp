// Every generated header in one translation unit, those in C too, behind the library's own with their macros.
#include <zor/msg.h>
#include <zor/msg_wire.h>

#include "thermo.h"
#include "thermo.hpp"
#include "thermo_old.h"
#include "thermo_old.hpp"
#include "zor.h"
#include "zor.hpp"

static_assert(thermo::Reached::kType == THERMO_REACHED && thermo::modules::thermo == THERMO_MODULE_THERMO);
static_assert(thermo::GetStateReply_::kLastType == THERMO_GETSTATEREPLY_LAST);
static_assert(zor_::MSG_REGISTER_APP::kType == ZOR_MSG_REGISTER_APP &&
              ZOR_ZOR_MSG_REGISTER_APP == ZOR_MSG_REGISTER_APP);

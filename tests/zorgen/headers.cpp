// Every generated header in one translation unit, those in C too.
#include "thermo.h"
#include "thermo.hpp"
#include "thermo_old.h"
#include "thermo_old.hpp"
#include "zor.h"
#include "zor.hpp"

static_assert(thermo::Reached::kType == THERMO_REACHED && thermo::modules::thermo == THERMO_MODULE_THERMO);
static_assert(thermo::GetStateReply_::kLastType == THERMO_GETSTATEREPLY_LAST);

#include "core/orvoMsg.h"

OrvoMsg::~OrvoMsg() = default;

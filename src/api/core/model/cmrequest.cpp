#include "core/model/cmrequest.h"

CMRequest::Data::~Data() = default;

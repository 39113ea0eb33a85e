#pragma once

#define PROPERTY_GROUP "devices/properties/FirmwareProperties.inc"
#include "devices/properties/PropertyGroup.h"

#pragma once

#define PROPERTY_GROUP "devices/properties/BasicProperties.inc"
#include "devices/properties/PropertyGroup.h"

#pragma once

#define PROPERTY_GROUP "devices/properties/NamespaceProperties.inc"
#include "devices/properties/PropertyGroup.h"

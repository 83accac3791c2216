#pragma once

// Every public header of the library.
#include "HVX/App/Gerber.h"
#include "HVX/Base/Error.h"
#include "HVX/Base/Log.h"
#include "HVX/Base/Quantities.h"
#include "HVX/Base/StringUtil.h"
#include "HVX/Base/Strings.h"
#include "HVX/Base/Vector.h"
#include "HVX/Device/DeviceLoader.h"
#include "HVX/Filesystem/File.h"
#include "HVX/Filesystem/Filesystem.h"
#include "HVX/Graphics/State.h"
#include "HVX/Init.h"
#include "HVX/Math/Delaunay.h"
#include "HVX/Visa/Visa.h"

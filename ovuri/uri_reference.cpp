// SPDX-License-Identifier: Apache-2.0
#include "ovuri/uri_reference.h"

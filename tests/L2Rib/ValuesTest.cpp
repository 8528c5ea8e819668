#include "support/Support.h"

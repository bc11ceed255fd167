#include "../program.h"

#include "crypto_fixture.h"

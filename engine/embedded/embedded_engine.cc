#include "tesselclient/tesselclient.h"

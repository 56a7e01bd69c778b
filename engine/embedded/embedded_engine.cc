#include "tesselclient/tesselclient.h"
TSLM::TSLMManager* TSLM::TSLMManager::CreateTSLMManager(const tsl::CreateParams&) { return nullptr; }
void TSLM::TSLMManager::DestroyTSLMManager() {}

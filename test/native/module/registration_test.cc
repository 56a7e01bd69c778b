// How the addon registers, on a host that knows only the record which a module gives to
// napi_module_register() while it is loaded.

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <node_api.h>

#include <string>
#include <vector>

namespace {

std::vector<napi_module> registered;

}  // namespace

extern "C" void napi_module_register(napi_module* record) { registered.push_back(*record); }

namespace {

TEST(RegistrationTest, LoadingTheAddonRegistersItOnceByItsNameAndVersion) {
  // What it needs beyond that is not looked for until it is called.
  void* const addon = dlopen(ADDON_FILE, RTLD_LAZY | RTLD_LOCAL);
  ASSERT_NE(addon, nullptr) << dlerror();
  ASSERT_EQ(registered.size(), 1u);
  const napi_module& record = registered.front();
  EXPECT_EQ(record.nm_version, 1);
  EXPECT_EQ(record.nm_flags, 0u);
  EXPECT_STREQ(record.nm_modname, "addon");
  EXPECT_STREQ(record.nm_filename, "tesselWrapper.node");
  // The function lies in the addon.
  Dl_info info = {};
  ASSERT_NE(dladdr(reinterpret_cast<void*>(record.nm_register_func), &info), 0);
  EXPECT_TRUE(std::string(info.dli_fname).ends_with("/tesselWrapper.node")) << info.dli_fname;
}

}  // namespace

#include "test/native/engine/webrtc/broken_element.h"

namespace webrtc {
namespace {

using BareElement = GstElement;
using BareElementClass = GstElementClass;
// NOLINTNEXTLINE: the macro's own code
G_DEFINE_TYPE(BareElement, bare_element, GST_TYPE_ELEMENT)
void bare_element_init(BareElement*) {}
void bare_element_class_init(BareElementClass* klass) {
  gst_element_class_set_static_metadata(klass, "bare", "Test", "Does nothing", "tessel");
}

ObjectPtr<GstPluginFeature> featureOf(const char* name) {
  return ObjectPtr<GstPluginFeature>(
      gst_registry_find_feature(gst_registry_get(), name, GST_TYPE_ELEMENT_FACTORY));
}

}  // namespace

MissingElement::MissingElement(const char* name) : feature_(featureOf(name)) {
  gst_registry_remove_feature(gst_registry_get(), feature_.get());
}

MissingElement::~MissingElement() {
  auto* const feature = GST_PLUGIN_FEATURE(gst_object_ref(feature_.get()));
  gst_registry_add_feature(gst_registry_get(), feature);
}

BrokenElement::BrokenElement(const char* name) : name_(name), working_(name) {
  gst_element_register(nullptr, name, GST_RANK_NONE, bare_element_get_type());
}

BrokenElement::~BrokenElement() {
  gst_registry_remove_feature(gst_registry_get(), featureOf(name_).get());
}

}  // namespace webrtc

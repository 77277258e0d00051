// A host with a schema of its own: fills a message, sends it to bytes, reads it back with its extensions, and
// ends with 0 when all has come back.

#include <cstdio>
#include <string>

#include "nvxcore/message/NVXx_PBDescriptor.h"
#include "nvxcore/message/NVXx_PBExtensionRegistry.h"
#include "nvxcore/message/NVXx_PBTextFormat.h"
#include "visit.pb.h"

int main() {
  using namespace nvxcore;
  auto visit = CNSVisit::message();
  visit->setName("a mill");
  visit->at().setLatE7(525200080);
  visit->at().setLngE7(134049540);
  visit->minuteArray().addInt32(7);
  visit->minuteArray().addInt32(300);
  visit->getExtension(CNSVisitRoot::parked())->setLatE7(525200081);
  visit->addExtension(CNSVisitRoot::photo(), "front.jpg");

  const Data bytes = visit->data();
  const auto again = CNSVisit::parseFromData(bytes, &CNSVisitRoot::extensionRegistry());
  std::printf("%s", NVXx_PBTextFormatForMessage(again.get())->c_str());

  const bool same = again->isEqual(visit.get()) && again->name() == "a mill" &&
                    again->at().latE7() == 525200080 && again->minuteArray().int32AtIndex(1) == 300 &&
                    !again->hasMood() && again->mood() == CNSVisit_Mood_Fine &&
                    again->hasExtension(CNSVisitRoot::parked()) &&
                    again->getExtension(CNSVisitRoot::parked())->latE7() == 525200081;
  return same ? 0 : 1;
}

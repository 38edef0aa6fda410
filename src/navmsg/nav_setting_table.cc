#include "navmsg/nav_message.h"

namespace vorel::navmsg {

const platform::SettingTable<NavPanelValues>& NavSettingTable() {
  using N = NavPanelValues;
  static const platform::SettingTable<N> table = {
      {.name = "navPrn", .member = &N::navPrn, .min = 1, .max = kMessagePrnCount,
       .meaning = "satellite of `nav`"},
      {.name = "IodcFollowsIode", .member = &N::IodcFollowsIode, .min = 0, .max = 1,
       .meaning = "1: the navigation message's IODC carries the record's IODE, for receivers "
                  "that insist they match; 0: IODC 562 in every frame"},
      {.name = "SatClockFromMessage", .member = &N::SatClockFromMessage, .min = 0, .max = 1,
       .meaning = "1: the ranges carry the satellite clock an L1 C/A receiver works out from "
                  "the message (polynomial + relativistic term - TGD) and subframe 1 sends the "
                  "navigation file's TGD; 0: the clock polynomial alone and TGD 0"},
      {.name = "NavRecordAsRanges", .member = &N::NavRecordAsRanges, .min = 0, .max = 1,
       .meaning = "1: the message carries the record the ranges fly a millisecond after the "
                  "start of its page cycle; 0: the record chosen at that start, which at an "
                  "even hour of a navigation file's own epochs is none, so the day's first"},
  };
  return table;
}

}  // namespace vorel::navmsg

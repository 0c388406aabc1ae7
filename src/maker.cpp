#include "maker.h"

namespace maker {

const char* const kName = FERRODECK_MAKER;
const char* const kWebsite = FERRODECK_WEBSITE;
const char* const kDownloads = FERRODECK_DOWNLOADS;
const char* const kContact = FERRODECK_CONTACT;
const char* const kBugAddress = FERRODECK_BUG_ADDRESS;

}  // namespace maker

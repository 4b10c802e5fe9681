#ifndef QUILLON_AUTHORING_CHECK_COMMENTS_H_
#define QUILLON_AUTHORING_CHECK_COMMENTS_H_

#include "authoring/check/CheckedFile.h"
#include "authoring/report/Finding.h"

/// Comments behind //, which take the end of their line along.
namespace quillon {

/// The one that begins behind `end`, in the same line; null when there is none.
const FormatPlaces::Comment* lineCommentBehind(const CheckedFile& file, const Place& end);

/// Puts `comment` in a line of its own before what begins at `start`.
Fix commentMoved(const CheckedFile& file, const Place& start, const FormatPlaces::Comment& comment);

}  // namespace quillon

#endif  // QUILLON_AUTHORING_CHECK_COMMENTS_H_

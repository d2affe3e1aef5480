#ifndef KX_OBJECT_GUID_H
#define KX_OBJECT_GUID_H

/// @file
/// KXObjectGuid, the identifier text that KXBasicGenericStream::calcID() fills.

#include <string>

#include "KXExport.h"

/// An identifier text, such as the content identifier of a stream. Subclasses choose the digest
/// text form through GetFormat(). A plain value: copyable, owns its text.
class KX_EXPORT KXObjectGuid {
 public:
  /// An empty identifier.
  KXObjectGuid() = default;
  /// Copies the text.
  KXObjectGuid(const KXObjectGuid&) = default;
  /// Copies the text.
  KXObjectGuid& operator=(const KXObjectGuid&) = default;

  /// The digest format the identifier wants: 'x' (lower-case hexadecimal) here, 'X' for
  /// upper-case in a subclass.
  virtual char GetFormat() const;
  /// Releases the text.
  virtual ~KXObjectGuid();

  /// Replaces the text with a copy of @p text; a null text clears the identifier.
  void SetID(const char* text);
  /// The text, "" before any SetID(). Owned by the object, valid until it changes.
  const char* GetID() const;

 protected:
  std::string mID;  ///< The identifier text.
};

#endif

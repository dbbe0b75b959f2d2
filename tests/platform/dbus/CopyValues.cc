// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "CopyValues.h"

namespace hoist::dbus {

namespace {

void copyValue(MessageReader& reader, MessageWriter& writer) {
  switch (reader.peekType()) {
    case 'y':
      return writer.appendByte(reader.readByte());
    case 'b':
      return writer.appendBoolean(reader.readBoolean());
    case 'n':
      return writer.appendInt16(reader.readInt16());
    case 'q':
      return writer.appendUInt16(reader.readUInt16());
    case 'i':
      return writer.appendInt32(reader.readInt32());
    case 'u':
      return writer.appendUInt32(reader.readUInt32());
    case 'x':
      return writer.appendInt64(reader.readInt64());
    case 't':
      return writer.appendUInt64(reader.readUInt64());
    case 'd':
      return writer.appendDouble(reader.readDouble());
    case 's':
      return writer.appendString(reader.readString());
    case 'o':
      return writer.appendObjectPath(reader.readObjectPath());
    case 'g':
      return writer.appendSignature(reader.readSignature());
    case 'h':
      return writer.appendFileDescriptor(reader.readFileDescriptor());
    case 'v':
      writer.openVariant(reader.enterVariant());
      break;
    case 'a':
      reader.enterArray(), writer.openArray();
      break;
    case '(':
      reader.enterStruct(), writer.openStruct();
      break;
    case '{':
      reader.enterDictEntry(), writer.openDictEntry();
      break;
  }
  copyValues(reader, writer);
  reader.leave();
  writer.close();
}

}  // namespace

void copyValues(MessageReader& reader, MessageWriter& writer) {
  while (reader.hasMore()) copyValue(reader, writer);
}

OutgoingMessage rewritten(Message& message) {
  MessageWriter writer(message.header());
  MessageReader reader(message);
  copyValues(reader, writer);
  reader.finish();
  return writer.finish(message.serial());
}

}  // namespace hoist::dbus

package com.vesma.quorl;

/** A message: named, typed fields and the subjects that it travels by. */
public final class QuorlMsg {
    QuorlMsg() {}

    // Whole messages.
    static native long quorlMsg_Create();
    static native long quorlMsg_CreateFromBytes(byte[] messageBytes, int messageBytesLength);
    native Object quorlMsg_GetEvent(long message);
    static native void quorlMsg_Detach(long handle);
    static native long quorlMsg_CreateCopy(long handle, QuorlMsg msg);
    static native long quorlMsg_GetEnvelope(long handle, QuorlMsg msg);
    static native void quorlMsg_Destroy(long handle, QuorlMsg msg);
    static native void quorlMsg_Reset(long handle, QuorlMsg msg);
    static native int quorlMsg_GetSendSubject(long handle, byte[] subjectBytes, QuorlMsg msg);
    static native String quorlMsg_GetSendSubjectUTF8(long handle, QuorlMsg msg);
    static native void quorlMsg_SetSendSubject(long handle, byte[] subjectBytes, int subjectBytesLength, QuorlMsg msg);
    static native void quorlMsg_SetSendStringSubject(long handle, String subject, QuorlMsg msg);
    static native int quorlMsg_GetReplySubject(long handle, byte[] subjectBytes, QuorlMsg msg);
    static native String quorlMsg_GetReplySubjectUTF8(long handle, QuorlMsg msg);
    static native void quorlMsg_SetReplySubject(long handle, byte[] subjectBytes, int subjectBytesLength, QuorlMsg msg);
    static native void quorlMsg_SetReplyStringSubject(long handle, String subject, QuorlMsg msg);
    static native byte[] quorlMsg_ConvertToString(long handle, QuorlMsg msg);
    static native int quorlMsg_GetNumFields(long handle, QuorlMsg msg);
    static native int quorlMsg_GetByteSize(long handle, QuorlMsg msg);
    static native byte[] quorlMsg_GetAsBytes(long handle, QuorlMsg msg);

    // Where a field is and what it is.
    static native long quorlMsg_GetFieldTypeAndIndex(long handle, byte[] nameBytes, int nameBytesLength, short id, QuorlMsg msg);
    static native long quorlMsg_GetFieldTypeAndIndexUTF(long handle, String fieldName, short id, QuorlMsg msg);
    static native long quorlMsg_GetFieldInstanceTypeAndIndex(long handle, int instance, byte[] nameBytes, int nameBytesLength, QuorlMsg msg);
    static native long quorlMsg_GetFieldInstanceTypeAndIndexUTF(long handle, int instance, String fieldName, QuorlMsg msg);
    static native long quorlMsg_GetFieldSize(long handle, int index, QuorlMsg msg);
    static native long quorlMsg_GetFieldCount(long handle, int index, QuorlMsg msg);
    static native short quorlMsg_GetFieldType(long handle, int index, QuorlMsg msg);
    static native int quorlMsg_GetFieldId(long handle, int index, QuorlMsg msg);
    static native byte[] quorlMsg_GetFieldName(long handle, int index, QuorlMsg msg);
    static native boolean quorlMsg_RemoveFieldEx(long handle, byte[] fieldNameBytes, int fieldNameBytesLength, short id, QuorlMsg msg);
    static native boolean quorlMsg_RemoveFieldInstance(long handle, byte[] fieldNameBytes, int fieldNameBytesLength, long instance, QuorlMsg msg);

    // Scalars by index.
    static native boolean quorlMsg_GetBool(long handle, int index, QuorlMsg msg);
    static native byte quorlMsg_GetI8(long handle, int index, QuorlMsg msg);
    static native short quorlMsg_GetU8(long handle, int index, QuorlMsg msg);
    static native short quorlMsg_GetI16(long handle, int index, QuorlMsg msg);
    static native int quorlMsg_GetU16(long handle, int index, QuorlMsg msg);
    static native int quorlMsg_GetI32(long handle, int index, QuorlMsg msg);
    static native long quorlMsg_GetU32(long handle, int index, QuorlMsg msg);
    static native long quorlMsg_GetI64(long handle, int index, QuorlMsg msg);
    static native long quorlMsg_GetU64(long handle, int index, QuorlMsg msg);
    static native float quorlMsg_GetF32(long handle, int index, QuorlMsg msg);
    static native double quorlMsg_GetF64(long handle, int index, QuorlMsg msg);
    static native short quorlMsg_GetIPPort16(long handle, int index, QuorlMsg msg);
    static native int quorlMsg_GetIPAddr32(long handle, int index, QuorlMsg msg);
    static native long quorlMsg_GetMsg(long handle, int index, QuorlMsg msg);
    static native long quorlMsg_GetDateSec(long handle, int index, QuorlMsg msg);
    static native int quorlMsg_GetDateNSec(long handle, int index, QuorlMsg msg);
    static native void quorlMsg_GetString(long handle, int index, byte[] stringBytes, QuorlMsg msg);
    static native String quorlMsg_GetStringUTF8(long handle, int index, QuorlMsg msg);

    // Scalars by name and id.
    static native boolean quorlMsg_GetBool(long handle, byte[] fieldNameBytes, int fieldNameBytesLength, short id, QuorlMsg msg);
    static native byte quorlMsg_GetI8(long handle, byte[] fieldNameBytes, int fieldNameBytesLength, short id, QuorlMsg msg);
    static native short quorlMsg_GetI16(long handle, byte[] fieldNameBytes, int fieldNameBytesLength, short id, QuorlMsg msg);
    static native int quorlMsg_GetI32(long handle, byte[] fieldNameBytes, int fieldNameBytesLength, short id, QuorlMsg msg);
    static native long quorlMsg_GetI64(long handle, byte[] fieldNameBytes, int fieldNameBytesLength, short id, QuorlMsg msg);
    static native float quorlMsg_GetF32(long handle, byte[] fieldNameBytes, int fieldNameBytesLength, short id, QuorlMsg msg);
    static native double quorlMsg_GetF64(long handle, byte[] fieldNameBytes, int fieldNameBytesLength, short id, QuorlMsg msg);
    static native boolean quorlMsg_GetBoolUTF(long handle, String fieldName, short id, QuorlMsg msg);
    static native byte quorlMsg_GetI8UTF(long handle, String fieldName, short id, QuorlMsg msg);
    static native short quorlMsg_GetI16UTF(long handle, String fieldName, short id, QuorlMsg msg);
    static native int quorlMsg_GetI32UTF(long handle, String fieldName, short id, QuorlMsg msg);
    static native long quorlMsg_GetI64UTF(long handle, String fieldName, short id, QuorlMsg msg);
    static native float quorlMsg_GetF32UTF(long handle, String fieldName, short id, QuorlMsg msg);
    static native double quorlMsg_GetF64UTF(long handle, String fieldName, short id, QuorlMsg msg);

    // Scalars to add, name as bytes.
    static native void quorlMsg_AddBool(long handle, byte[] fieldNameBytes, int fieldNameBytesLength, boolean data, short id, QuorlMsg msg);
    static native void quorlMsg_AddI8(long handle, byte[] fieldNameBytes, int fieldNameBytesLength, byte data, short id, QuorlMsg msg);
    static native void quorlMsg_AddU8(long handle, byte[] fieldNameBytes, int fieldNameBytesLength, byte data, short id, QuorlMsg msg);
    static native void quorlMsg_AddI16(long handle, byte[] fieldNameBytes, int fieldNameBytesLength, short data, short id, QuorlMsg msg);
    static native void quorlMsg_AddU16(long handle, byte[] fieldNameBytes, int fieldNameBytesLength, short data, short id, QuorlMsg msg);
    static native void quorlMsg_AddI32(long handle, byte[] fieldNameBytes, int fieldNameBytesLength, int data, short id, QuorlMsg msg);
    static native void quorlMsg_AddU32(long handle, byte[] fieldNameBytes, int fieldNameBytesLength, int data, short id, QuorlMsg msg);
    static native void quorlMsg_AddI64(long handle, byte[] fieldNameBytes, int fieldNameBytesLength, long data, short id, QuorlMsg msg);
    static native void quorlMsg_AddU64(long handle, byte[] fieldNameBytes, int fieldNameBytesLength, long data, short id, QuorlMsg msg);
    static native void quorlMsg_AddF32(long handle, byte[] fieldNameBytes, int fieldNameBytesLength, float data, short id, QuorlMsg msg);
    static native void quorlMsg_AddF64(long handle, byte[] fieldNameBytes, int fieldNameBytesLength, double data, short id, QuorlMsg msg);
    static native void quorlMsg_AddIPPort16(long handle, byte[] fieldNameBytes, int fieldNameBytesLength, short data, short id, QuorlMsg msg);
    static native void quorlMsg_AddIPAddr32(long handle, byte[] fieldNameBytes, int fieldNameBytesLength, int data, short id, QuorlMsg msg);
    static native void quorlMsg_AddDateTime(long handle, byte[] fieldNameBytes, int fieldNameBytesLength, long sec, int nsec, short id, QuorlMsg msg);
    static native void quorlMsg_AddMsg(long handle, byte[] fieldNameBytes, int fieldNameBytesLength, long subHandle, short id, QuorlMsg msg, QuorlMsg submsg);
    static native void quorlMsg_AddString(long handle, byte[] fieldNameBytes, int fieldNameBytesLength, byte[] fieldValueBytes, int fieldValueBytesLength, short id, QuorlMsg msg);

    // Scalars to add, name as text.
    static native void quorlMsg_AddBoolUTF(long handle, String fieldName, boolean data, short id, QuorlMsg msg);
    static native void quorlMsg_AddI8UTF(long handle, String fieldName, byte data, short id, QuorlMsg msg);
    static native void quorlMsg_AddU8UTF(long handle, String fieldName, byte data, short id, QuorlMsg msg);
    static native void quorlMsg_AddI16UTF(long handle, String fieldName, short data, short id, QuorlMsg msg);
    static native void quorlMsg_AddU16UTF(long handle, String fieldName, short data, short id, QuorlMsg msg);
    static native void quorlMsg_AddI32UTF(long handle, String fieldName, int data, short id, QuorlMsg msg);
    static native void quorlMsg_AddU32UTF(long handle, String fieldName, int data, short id, QuorlMsg msg);
    static native void quorlMsg_AddI64UTF(long handle, String fieldName, long data, short id, QuorlMsg msg);
    static native void quorlMsg_AddU64UTF(long handle, String fieldName, long data, short id, QuorlMsg msg);
    static native void quorlMsg_AddF32UTF(long handle, String fieldName, float data, short id, QuorlMsg msg);
    static native void quorlMsg_AddF64UTF(long handle, String fieldName, double data, short id, QuorlMsg msg);
    static native void quorlMsg_AddIPPort16UTF(long handle, String fieldName, short data, short id, QuorlMsg msg);
    static native void quorlMsg_AddIPAddr32UTF(long handle, String fieldName, int data, short id, QuorlMsg msg);
    static native void quorlMsg_AddDateTimeUTF(long handle, String fieldName, long sec, int nsec, short id, QuorlMsg msg);
    static native void quorlMsg_AddMsgUTF(long handle, String fieldName, long subHandle, short id, QuorlMsg msg, QuorlMsg submsg);
    static native void quorlMsg_AddStringUTF(long handle, String fieldName, String fieldValue, short id, QuorlMsg msg);

    // Scalars to update, name as bytes.
    static native void quorlMsg_UpdateBool(long handle, byte[] fieldNameBytes, int fieldNameBytesLength, boolean data, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateI8(long handle, byte[] fieldNameBytes, int fieldNameBytesLength, byte data, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateU8(long handle, byte[] fieldNameBytes, int fieldNameBytesLength, byte data, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateI16(long handle, byte[] fieldNameBytes, int fieldNameBytesLength, short data, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateU16(long handle, byte[] fieldNameBytes, int fieldNameBytesLength, short data, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateI32(long handle, byte[] fieldNameBytes, int fieldNameBytesLength, int data, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateU32(long handle, byte[] fieldNameBytes, int fieldNameBytesLength, int data, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateI64(long handle, byte[] fieldNameBytes, int fieldNameBytesLength, long data, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateU64(long handle, byte[] fieldNameBytes, int fieldNameBytesLength, long data, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateF32(long handle, byte[] fieldNameBytes, int fieldNameBytesLength, float data, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateF64(long handle, byte[] fieldNameBytes, int fieldNameBytesLength, double data, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateIPPort16(long handle, byte[] fieldNameBytes, int fieldNameBytesLength, short data, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateIPAddr32(long handle, byte[] fieldNameBytes, int fieldNameBytesLength, int data, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateDateTime(long handle, byte[] fieldNameBytes, int fieldNameBytesLength, long sec, int nsec, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateMsg(long handle, byte[] fieldNameBytes, int fieldNameBytesLength, long subHandle, short id, QuorlMsg msg, QuorlMsg submsg);
    static native void quorlMsg_UpdateString(long handle, byte[] fieldNameBytes, int fieldNameBytesLength, byte[] fieldValueBytes, int fieldValueBytesLength, short id, QuorlMsg msg);

    // Scalars to update, name as text.
    static native void quorlMsg_UpdateBoolUTF(long handle, String fieldName, boolean data, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateI8UTF(long handle, String fieldName, byte data, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateU8UTF(long handle, String fieldName, byte data, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateI16UTF(long handle, String fieldName, short data, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateU16UTF(long handle, String fieldName, short data, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateI32UTF(long handle, String fieldName, int data, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateU32UTF(long handle, String fieldName, int data, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateI64UTF(long handle, String fieldName, long data, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateU64UTF(long handle, String fieldName, long data, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateF32UTF(long handle, String fieldName, float data, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateF64UTF(long handle, String fieldName, double data, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateIPPort16UTF(long handle, String fieldName, short data, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateIPAddr32UTF(long handle, String fieldName, int data, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateDateTimeUTF(long handle, String fieldName, long sec, int nsec, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateMsgUTF(long handle, String fieldName, long subHandle, short id, QuorlMsg msg, QuorlMsg submsg);
    static native void quorlMsg_UpdateStringUTF(long handle, String fieldName, String fieldValue, short id, QuorlMsg msg);

    // Arrays of numbers by index.
    static native void quorlMsg_GetI8Array(long handle, int index, byte[] array, QuorlMsg msg);
    static native void quorlMsg_GetU8Array(long handle, int index, short[] array, QuorlMsg msg);
    static native void quorlMsg_GetI16Array(long handle, int index, short[] array, QuorlMsg msg);
    static native void quorlMsg_GetU16Array(long handle, int index, int[] array, QuorlMsg msg);
    static native void quorlMsg_GetI32Array(long handle, int index, int[] array, QuorlMsg msg);
    static native void quorlMsg_GetU32Array(long handle, int index, long[] array, QuorlMsg msg);
    static native void quorlMsg_GetI64Array(long handle, int index, long[] array, QuorlMsg msg);
    static native void quorlMsg_GetU64Array(long handle, int index, long[] array, QuorlMsg msg);
    static native void quorlMsg_GetF32Array(long handle, int index, float[] array, QuorlMsg msg);
    static native void quorlMsg_GetF64Array(long handle, int index, double[] array, QuorlMsg msg);

    // Arrays of numbers to add, name as bytes.
    static native void quorlMsg_AddI8Array(long handle, byte[] fieldNameBytes, int fieldNameBytesLength, byte[] array, int arrayLength, short id, QuorlMsg msg);
    static native void quorlMsg_AddU8Array(long handle, byte[] fieldNameBytes, int fieldNameBytesLength, short[] array, int arrayLength, short id, QuorlMsg msg);
    static native void quorlMsg_AddI16Array(long handle, byte[] fieldNameBytes, int fieldNameBytesLength, short[] array, int arrayLength, short id, QuorlMsg msg);
    static native void quorlMsg_AddU16Array(long handle, byte[] fieldNameBytes, int fieldNameBytesLength, int[] array, int arrayLength, short id, QuorlMsg msg);
    static native void quorlMsg_AddI32Array(long handle, byte[] fieldNameBytes, int fieldNameBytesLength, int[] array, int arrayLength, short id, QuorlMsg msg);
    static native void quorlMsg_AddU32Array(long handle, byte[] fieldNameBytes, int fieldNameBytesLength, long[] array, int arrayLength, short id, QuorlMsg msg);
    static native void quorlMsg_AddI64Array(long handle, byte[] fieldNameBytes, int fieldNameBytesLength, long[] array, int arrayLength, short id, QuorlMsg msg);
    static native void quorlMsg_AddU64Array(long handle, byte[] fieldNameBytes, int fieldNameBytesLength, long[] array, int arrayLength, short id, QuorlMsg msg);
    static native void quorlMsg_AddF32Array(long handle, byte[] fieldNameBytes, int fieldNameBytesLength, float[] array, int arrayLength, short id, QuorlMsg msg);
    static native void quorlMsg_AddF64Array(long handle, byte[] fieldNameBytes, int fieldNameBytesLength, double[] array, int arrayLength, short id, QuorlMsg msg);

    // Arrays of numbers to add, name as text.
    static native void quorlMsg_AddI8ArrayUTF(long handle, String fieldName, byte[] array, int arrayLength, short id, QuorlMsg msg);
    static native void quorlMsg_AddU8ArrayUTF(long handle, String fieldName, short[] array, int arrayLength, short id, QuorlMsg msg);
    static native void quorlMsg_AddI16ArrayUTF(long handle, String fieldName, short[] array, int arrayLength, short id, QuorlMsg msg);
    static native void quorlMsg_AddU16ArrayUTF(long handle, String fieldName, int[] array, int arrayLength, short id, QuorlMsg msg);
    static native void quorlMsg_AddI32ArrayUTF(long handle, String fieldName, int[] array, int arrayLength, short id, QuorlMsg msg);
    static native void quorlMsg_AddU32ArrayUTF(long handle, String fieldName, long[] array, int arrayLength, short id, QuorlMsg msg);
    static native void quorlMsg_AddI64ArrayUTF(long handle, String fieldName, long[] array, int arrayLength, short id, QuorlMsg msg);
    static native void quorlMsg_AddU64ArrayUTF(long handle, String fieldName, long[] array, int arrayLength, short id, QuorlMsg msg);
    static native void quorlMsg_AddF32ArrayUTF(long handle, String fieldName, float[] array, int arrayLength, short id, QuorlMsg msg);
    static native void quorlMsg_AddF64ArrayUTF(long handle, String fieldName, double[] array, int arrayLength, short id, QuorlMsg msg);

    // Arrays of numbers to update, name as bytes.
    static native void quorlMsg_UpdateI8Array(long handle, byte[] fieldNameBytes, int fieldNameBytesLength, byte[] array, int arrayLength, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateU8Array(long handle, byte[] fieldNameBytes, int fieldNameBytesLength, short[] array, int arrayLength, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateI16Array(long handle, byte[] fieldNameBytes, int fieldNameBytesLength, short[] array, int arrayLength, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateU16Array(long handle, byte[] fieldNameBytes, int fieldNameBytesLength, int[] array, int arrayLength, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateI32Array(long handle, byte[] fieldNameBytes, int fieldNameBytesLength, int[] array, int arrayLength, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateU32Array(long handle, byte[] fieldNameBytes, int fieldNameBytesLength, long[] array, int arrayLength, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateI64Array(long handle, byte[] fieldNameBytes, int fieldNameBytesLength, long[] array, int arrayLength, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateU64Array(long handle, byte[] fieldNameBytes, int fieldNameBytesLength, long[] array, int arrayLength, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateF32Array(long handle, byte[] fieldNameBytes, int fieldNameBytesLength, float[] array, int arrayLength, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateF64Array(long handle, byte[] fieldNameBytes, int fieldNameBytesLength, double[] array, int arrayLength, short id, QuorlMsg msg);

    // Arrays of numbers to update, name as text.
    static native void quorlMsg_UpdateI8ArrayUTF(long handle, String fieldName, byte[] array, int arrayLength, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateU8ArrayUTF(long handle, String fieldName, short[] array, int arrayLength, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateI16ArrayUTF(long handle, String fieldName, short[] array, int arrayLength, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateU16ArrayUTF(long handle, String fieldName, int[] array, int arrayLength, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateI32ArrayUTF(long handle, String fieldName, int[] array, int arrayLength, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateU32ArrayUTF(long handle, String fieldName, long[] array, int arrayLength, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateI64ArrayUTF(long handle, String fieldName, long[] array, int arrayLength, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateF32ArrayUTF(long handle, String fieldName, float[] array, int arrayLength, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateF64ArrayUTF(long handle, String fieldName, double[] array, int arrayLength, short id, QuorlMsg msg);

    // Arrays of texts and messages.
    static native Object[] quorlMsg_GetStringArray(long handle, int index, QuorlMsg msg);
    static native void quorlMsg_GetMsgArray(long handle, int index, long[] array, QuorlMsg msg);
    static native void quorlMsg_AddStringArray(long handle, byte[] fieldNameBytes, int fieldNameBytesLength, Object[] array, int arrayLength, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateStringArray(long handle, byte[] fieldNameBytes, int fieldNameBytesLength, Object[] array, int arrayLength, short id, QuorlMsg msg);
    static native void quorlMsg_AddStringArrayUTF(long handle, String fieldName, Object[] array, int arrayLength, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateStringArrayUTF(long handle, String fieldName, Object[] array, int arrayLength, short id, QuorlMsg msg);
    static native void quorlMsg_AddMsgArray(long handle, byte[] fieldNameBytes, int fieldNameBytesLength, long[] array, int arrayLength, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateMsgArray(long handle, byte[] fieldNameBytes, int fieldNameBytesLength, long[] array, int arrayLength, short id, QuorlMsg msg);
    static native void quorlMsg_AddMsgArrayUTF(long handle, String fieldName, long[] array, int arrayLength, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateMsgArrayUTF(long handle, String fieldName, long[] array, int arrayLength, short id, QuorlMsg msg);

    // Bytes: opaque, XML, user types.
    static native void quorlMsg_GetOpaque(long handle, int index, byte[] bytes, QuorlMsg msg);
    static native void quorlMsg_GetXml(long handle, int index, byte[] bytes, QuorlMsg msg);
    static native void quorlMsg_GetUserType(long handle, int index, byte[] bytes, QuorlMsg msg);
    static native void quorlMsg_AddOpaque(long handle, byte[] fieldNameBytes, int fieldNameBytesLength, byte[] bytes, int bytesLength, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateOpaque(long handle, byte[] fieldNameBytes, int fieldNameBytesLength, byte[] bytes, int bytesLength, short id, QuorlMsg msg);
    static native void quorlMsg_AddOpaqueUTF(long handle, String fieldName, byte[] bytes, int bytesLength, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateOpaqueUTF(long handle, String fieldName, byte[] bytes, int bytesLength, short id, QuorlMsg msg);
    static native void quorlMsg_AddXml(long handle, byte[] fieldNameBytes, int fieldNameBytesLength, byte[] bytes, int bytesLength, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateXml(long handle, byte[] fieldNameBytes, int fieldNameBytesLength, byte[] bytes, int bytesLength, short id, QuorlMsg msg);
    static native void quorlMsg_AddXmlUTF(long handle, String fieldName, byte[] bytes, int bytesLength, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateXmlUTF(long handle, String fieldName, byte[] bytes, int bytesLength, short id, QuorlMsg msg);
    static native void quorlMsg_AddUserType(long handle, short type, byte[] fieldNameBytes, int fieldNameBytesLength, byte[] bytes, int bytesLength, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateUserType(long handle, short type, byte[] fieldNameBytes, int fieldNameBytesLength, byte[] bytes, int bytesLength, short id, QuorlMsg msg);
    static native void quorlMsg_AddUserTypeUTF(long handle, short type, String fieldName, byte[] bytes, int bytesLength, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateUserTypeUTF(long handle, short type, String fieldName, byte[] bytes, int bytesLength, short id, QuorlMsg msg);
    static native void quorlMsg_SetOpaqueHandlers(short type);
}

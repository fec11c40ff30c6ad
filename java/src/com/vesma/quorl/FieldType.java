package com.vesma.quorl;

import java.lang.annotation.Documented;
import java.lang.annotation.ElementType;
import java.lang.annotation.Retention;
import java.lang.annotation.RetentionPolicy;
import java.lang.annotation.Target;

/**
 * Which type of field a record's component becomes, where the one that its class stands for is not the right one: for
 * unsigned numbers, ports, XML and the program's own types of bytes.
 *
 * <pre>{@code
 * record Reading(
 *         @FieldType(QuorlMsgField.U32) long count,
 *         @FieldType(QuorlMsgField.U16ARRAY) int[] samples,
 *         @FieldType(QuorlMsgField.XML) byte[] note) {}
 * }</pre>
 *
 * @see QuorlMsg#of(Record)
 */
@Documented
@Retention(RetentionPolicy.RUNTIME)
@Target(ElementType.RECORD_COMPONENT)
public @interface FieldType {
    /**
     * The type.
     *
     * @return one of the constants of {@link QuorlMsgField}, or {@link QuorlMsgField#USER_FIRST} to 255
     */
    int value();
}

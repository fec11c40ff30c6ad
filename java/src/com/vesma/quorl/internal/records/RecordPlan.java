package com.vesma.quorl.internal.records;

import com.vesma.quorl.FieldType;
import com.vesma.quorl.QuorlException;
import com.vesma.quorl.internal.image.ApiAccess;
import com.vesma.quorl.internal.image.Fields;
import com.vesma.quorl.internal.image.ImageWriter;
import com.vesma.quorl.internal.image.MessageImage;
import com.vesma.quorl.internal.image.Texts;
import java.lang.invoke.MethodHandle;
import java.lang.invoke.MethodHandles;
import java.lang.invoke.MethodType;
import java.lang.reflect.RecordComponent;
import java.lang.reflect.Type;
import java.util.Optional;

/**
 * How the records of one class are written as messages and read from them, component by component. Made once for a class.
 */
public final class RecordPlan {
    private static final ClassValue<RecordPlan> PLANS = new ClassValue<>() {
        @Override
        protected RecordPlan computeValue(Class<?> type) {
            return new RecordPlan(type);
        }
    };

    private static final class Component {
        String name;
        Texts.Encoded encoded;
        /** From the record to the value, both as Object. */
        MethodHandle accessor;
        Class<?> type;
        boolean optional;
        Codec codec;
    }

    private final Class<?> type;
    private final Component[] components;

    /** From an array of the values to the record. */
    private final MethodHandle constructor;

    public static RecordPlan of(Class<?> type) {
        return PLANS.get(type);
    }

    /** A field's value as a component of that class would have it. */
    public static Object read(Class<?> type, MessageImage image, int field) {
        return Codec.of(type).read(image, field);
    }

    private RecordPlan(Class<?> type) {
        this.type = type;
        RecordComponent[] declared = type.getRecordComponents();
        if (declared == null) {
            throw new IllegalArgumentException(type.getTypeName() + " is not a record");
        }
        components = new Component[declared.length];
        Class<?>[] types = new Class<?>[declared.length];
        try {
            MethodHandles.Lookup lookup = lookup(type);
            for (int i = 0; i < declared.length; i++) {
                components[i] = component(declared[i], lookup);
                types[i] = declared[i].getType();
            }
            constructor = lookup.findConstructor(type, MethodType.methodType(void.class, types))
                    .asSpreader(Object[].class, types.length)
                    .asType(MethodType.methodType(Object.class, Object[].class));
        } catch (ReflectiveOperationException e) {
            Module own = RecordPlan.class.getModule();
            throw new IllegalArgumentException(type.getTypeName() + " cannot be reached: let its module say \"opens "
                    + type.getPackageName() + " to " + own.getName() + ";\"", e);
        }
    }

    /** Of the record's own package when it is open to this module, else of what is public. */
    private static MethodHandles.Lookup lookup(Class<?> type) {
        try {
            RecordPlan.class.getModule().addReads(type.getModule());
            return MethodHandles.privateLookupIn(type, MethodHandles.lookup());
        } catch (IllegalAccessException e) {
            return MethodHandles.publicLookup();
        }
    }

    private Component component(RecordComponent declared, MethodHandles.Lookup lookup) throws ReflectiveOperationException {
        Component made = new Component();
        made.name = declared.getName();
        made.encoded = Fields.encoded(made.name);
        made.type = declared.getType();
        made.accessor = lookup.unreflect(declared.getAccessor()).asType(MethodType.methodType(Object.class, Object.class));
        FieldType annotation = declared.getAnnotation(FieldType.class);
        Type wanted = declared.getGenericType();
        Type inside = Codec.optional(wanted);
        made.optional = inside != null;
        try {
            made.codec = Codec.of(made.optional ? inside : wanted, annotation == null ? Codec.NOT_ANNOTATED : annotation.value());
        } catch (IllegalArgumentException e) {
            throw new IllegalArgumentException(describe(made) + ": " + e.getMessage(), e);
        }
        return made;
    }

    private String describe(Component component) {
        return type.getSimpleName() + "." + component.name;
    }

    /** Writes the components as fields of the message that is begun. */
    public void write(ImageWriter out, Object record) {
        for (Component component : components) {
            Object value = get(component, record);
            if (component.optional && value != null) {
                value = ((Optional<?>) value).orElse(null);
            }
            if (value != null) {
                write(out, component, value);
            }
        }
    }

    private void write(ImageWriter out, Component component, Object value) {
        try {
            component.codec.write(out, component.encoded.bytes, value);
        } catch (QuorlException e) {
            throw ApiAccess.about(e, describe(component));
        } catch (IllegalArgumentException e) {
            throw new IllegalArgumentException(describe(component) + ": " + e.getMessage(), e);
        } catch (NullPointerException e) {
            NullPointerException named = new NullPointerException(describe(component) + ": " + e.getMessage());
            named.initCause(e);
            throw named;
        }
    }

    /** Makes a record of the fields of a message; those that no component asks for are left. */
    public Object read(MessageImage image) {
        Object[] values = new Object[components.length];
        for (int i = 0; i < values.length; i++) {
            values[i] = read(image, components[i]);
        }
        try {
            return constructor.invokeExact(values);
        } catch (RuntimeException | Error e) {
            throw e;
        } catch (Throwable e) {
            throw new IllegalArgumentException("the constructor of " + type.getTypeName() + " failed", e);
        }
    }

    private Object read(MessageImage image, Component component) {
        try {
            int field = image.find(component.encoded);
            if (field >= 0) {
                Object value = component.codec.read(image, field);
                return component.optional ? Optional.of(value) : value;
            }
            if (component.type.isPrimitive()) {
                throw Fields.missing(component.name, 0, component.type.getSimpleName());
            }
            return component.optional ? Optional.empty() : null;
        } catch (QuorlException e) {
            throw ApiAccess.about(e, describe(component));
        }
    }

    private static Object get(Component component, Object record) {
        try {
            return component.accessor.invokeExact(record);
        } catch (RuntimeException | Error e) {
            throw e;
        } catch (Throwable e) {
            throw new IllegalArgumentException("the accessor " + component.name + " failed", e);
        }
    }
}

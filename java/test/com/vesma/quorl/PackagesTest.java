package com.vesma.quorl;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertSame;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.io.InputStream;
import java.lang.module.ModuleDescriptor;
import java.lang.reflect.Constructor;
import java.lang.reflect.Executable;
import java.lang.reflect.Field;
import java.lang.reflect.Method;
import java.lang.reflect.Modifier;
import java.nio.file.Files;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import java.util.Set;
import java.util.stream.Collectors;
import java.util.stream.Stream;
import org.junit.jupiter.api.Test;

/** What a program sees of the module: one package, and nothing of the others in it. */
class PackagesTest {
    private static final String INTERNAL = "com.vesma.quorl.internal.";

    @Test
    void onePackageIsExported() throws Exception {
        try (InputStream in = Files.newInputStream(ApiClasses.folder().resolve("module-info.class"))) {
            Set<String> exported = ModuleDescriptor.read(in).exports().stream()
                    .map(ModuleDescriptor.Exports::source).collect(Collectors.toSet());
            assertEquals(Set.of("com.vesma.quorl"), exported);
        }
    }

    @Test
    void publicSignaturesNameNoInternalClass() throws Exception {
        List<String> leaks = new ArrayList<>();
        int seen = 0;
        for (Class<?> type : ApiClasses.all()) {
            seen++;
            for (Executable each : Stream.<Executable>concat(Arrays.stream(type.getDeclaredConstructors()),
                    Arrays.stream(type.getDeclaredMethods())).filter(PackagesTest::isVisible).toList()) {
                String signature = each.toGenericString();
                if (signature.contains(INTERNAL)) {
                    leaks.add(signature);
                }
            }
            for (Field each : type.getDeclaredFields()) {
                if ((each.getModifiers() & (Modifier.PUBLIC | Modifier.PROTECTED)) != 0 && each.toGenericString().contains(INTERNAL)) {
                    leaks.add(each.toGenericString());
                }
            }
        }
        assertTrue(seen > 20, seen + " public classes");
        assertEquals(List.of(), leaks);
    }

    @Test
    void aMessageHasItsMethodsItself() {
        assertSame(Object.class, QuorlMsg.class.getSuperclass());
        assertSame(QuorlMsg.class, Arrays.stream(QuorlMsg.class.getMethods())
                .filter(method -> method.getName().equals("addF64Array")).map(Method::getDeclaringClass).distinct().reduce((a, b) -> null)
                .orElseThrow());
    }

    private static boolean isVisible(Executable each) {
        // A bridge method that the compiler makes is nobody's to call.
        return (each.getModifiers() & (Modifier.PUBLIC | Modifier.PROTECTED)) != 0 && !each.isSynthetic()
                && !(each instanceof Constructor<?> && Modifier.isAbstract(each.getDeclaringClass().getModifiers()));
    }
}

/*
 * Sends one HTML mail with a logo and an attachment, by JNA, and says what went wrong where that fails.
 *
 * In the folder "samples", where logo.png and report.txt lie; USER PASSWORD may follow for a login.
 *
 * Linux (Debian: libjna-java):
 *     javac -encoding UTF-8 -cp /usr/share/java/jna.jar -d . java/FirstMail.java
 *     java -cp .:/usr/share/java/jna.jar -Djna.library.path=../lib FirstMail mail.example.com 25 me@example.com you@example.com
 * Windows, with jna.jar in this folder (a 32-bit Java takes x86):
 *     javac -encoding UTF-8 -cp jna.jar -d . java\FirstMail.java
 *     java -cp .;jna.jar -Djna.library.path=..\x64 FirstMail mail.example.com 25 me@example.com you@example.com
 */
import com.sun.jna.Library;
import com.sun.jna.Native;
import com.sun.jna.Platform;
import com.sun.jna.Pointer;
import com.sun.jna.win32.StdCallLibrary;
import java.io.IOException;
import java.io.InputStream;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.HashMap;
import java.util.Map;

public final class FirstMail {
    /**
     * What of the library this program calls. Texts are bytes, for JNA encodes every String alike, as
     * jna.encoding or the system says. Those about the server are made by ansi(), those of the message by utf8().
     */
    public interface EmailSending extends Library {
        int Initialise();
        void setSmtpHost(byte[] host);
        void setSmtpPort(int port);
        void setSmtpUser(byte[] user);
        void setSmtpPassword(byte[] password);
        void setStartTls(int flag);
        void setFromAddress(byte[] address);
        int setRecipient(byte[] address);
        void setSubject(byte[] subject);
        void setBody(byte[] body);
        void setLogo(byte[] path);
        void setAttachment(byte[] path);
        int szBrisko();
        Pointer getLastError();
    }

    private static final String SYSTEM = System.getProperty("sun.jnu.encoding");
    /** The encoding of texts about the server: UTF-8 in the locale C, too. */
    private static final String ANSI = SYSTEM.startsWith("ANSI_X3.4") ? "UTF-8" : SYSTEM;

    private static byte[] ansi(String text) throws IOException {
        byte[] bytes = (text + "\0").getBytes(ANSI);
        if (new String(bytes, ANSI).equals(text + "\0")) return bytes;
        throw new IOException("The ANSI code page has not all characters of a text");  // "?" in their place
    }

    private static byte[] utf8(String text) {
        return (text + "\0").getBytes(StandardCharsets.UTF_8);
    }

    private static EmailSending load() {
        Map<String, Object> options = new HashMap<>();
        if (Platform.isWindows() && !Platform.is64Bit()) {  // stdcall and "_setSmtpHost@4"
            options.put(Library.OPTION_CALLING_CONVENTION, StdCallLibrary.STDCALL_CONVENTION);
            options.put(Library.OPTION_FUNCTION_MAPPER, StdCallLibrary.FUNCTION_MAPPER);
        }
        return Native.load("emailsending", EmailSending.class, options);
    }

    /** The line of getLastError's text that says what went wrong. */
    private static String tellingLine(String text) {
        boolean trial = text.contains("TolvaneLog:");  // its log; else a dialogue
        String line = "";
        for (String each : text.split("[\r\n]+")) {
            String words = each.stripLeading();
            boolean frame = words.startsWith("--") || words.split(" ")[0].endsWith(":")
                    || words.startsWith("Failed") || words.startsWith("Terminated");
            if (!words.isEmpty() && !(trial && frame)) line = words;
        }
        return line;
    }

    /** setLogo and setAttachment have no result: what they are to take is tried before. */
    private static byte[] readable(String path) throws IOException {
        try (InputStream file = Files.newInputStream(Path.of(path))) {
            file.read();
        } catch (IOException error) {
            throw new IOException(path + " cannot be read", error);
        }
        return utf8(path);
    }

    private static void send(String[] args) throws IOException {
        if (args.length != 4 && args.length != 6) throw new IOException("FirstMail HOST PORT FROM TO [USER PASSWORD]");
        EmailSending library = load();
        library.Initialise();
        library.setSmtpHost(ansi(args[0]));
        library.setSmtpPort(Integer.parseInt(args[1]));
        if (args.length == 6) {
            library.setStartTls(1);  // a server without it does not get the password
            library.setSmtpUser(ansi(args[4]));
            library.setSmtpPassword(ansi(args[5]));
        }
        library.setFromAddress(utf8(args[2]));
        if (library.setRecipient(utf8(args[3])) == 0) throw new IOException(args[3] + " is no address");
        library.setSubject(utf8("Report for Łódź: 1200 €"));
        library.setBody(utf8("<html><body>{LOGO}<p>Żaneta, the report is attached.</p></body></html>"));
        library.setLogo(readable("logo.png"));  // always after setBody: it hands the body over
        library.setAttachment(readable("report.txt"));
        if (library.szBrisko() == 0) throw new IOException(tellingLine(library.getLastError().getString(0, ANSI)));
    }

    public static void main(String[] args) {
        try {
            send(args);
        } catch (IOException | RuntimeException | UnsatisfiedLinkError error) {
            System.err.println(error.getMessage());
            System.exit(1);
        }
    }
}

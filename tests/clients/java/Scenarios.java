// jTDS against vrn-server at tds=8.0 (the 7.1 protocol): every scenario as a
// CallableStatement {? = call proc(...)} with OUT parameters, logging in with no
// pre-login (ssl=off); and in its batch form as a PreparedStatement, prepared
// (sp_prepare, sp_execute) after a pre-login (ssl=request), and with
// prepareSQL=0 (the values written into a plain batch). Reads VRN_PORT,
// VRN_USER, VRN_PASSWORD and VRN_EXPECTED. VRN_TLS=1: against a server with a
// certificate, ssl=require for the call and the unprepared passes.
import java.nio.file.*;
import java.sql.*;
import java.util.*;

@SuppressWarnings("unchecked")
public class Scenarios {
    static final Map<String, String> env = System.getenv();
    static int passed, failed;

    public static void main(String[] args) throws Exception {
        List<Object> table = (List<Object>) new Json(Files.readString(Path.of(env.get("VRN_EXPECTED")))).value();
        Class.forName("net.sourceforge.jtds.jdbc.Driver");
        String[][] passes = "1".equals(env.get("VRN_TLS"))
                ? new String[][] {{"call", ";ssl=require"}, {"batch", ";ssl=request"}, {"batch", ";ssl=require;prepareSQL=0"}}
                : new String[][] {{"call", ";ssl=off"}, {"batch", ";ssl=request"}, {"batch", ";ssl=off;prepareSQL=0"}};
        for (String[] pass : passes) {
            String label = "jtds_" + pass[0] + pass[1].replaceAll("\\W", "_");
            // jTDS sends every string as varchar, or every one as nvarchar: a connection of each kind.
            try (Connection plain = connect(pass[1] + ";sendStringParametersAsUnicode=false", env.get("VRN_PASSWORD"));
                 Connection unicode = connect(pass[1], env.get("VRN_PASSWORD"))) {
                for (Object o : table) {
                    Map<String, Object> s = (Map<String, Object>) o;
                    boolean wide = s.containsKey("params") && params(s).stream().anyMatch(p -> ((String) p.get(0)).startsWith("n"));
                    report(label + " " + s.get("name"), attempt(wide ? unicode : plain, s, pass, label));
                }
            } catch (SQLException e) {
                report(label + " connection", e.getErrorCode() + " " + e.getMessage());
            }
        }
        System.out.println(passed + " passed, " + failed + " failed");
        System.exit(failed == 0 ? 0 : 1);
    }

    static Connection connect(String options, String password) throws SQLException {
        return DriverManager.getConnection("jdbc:jtds:sqlserver://127.0.0.1:" + env.get("VRN_PORT")
                + "/master;tds=8.0;useLOBs=false;loginTimeout=10;socketTimeout=30" + options,
                env.get("VRN_USER"), password);
    }

    static void report(String label, String problem) {
        if (problem.isEmpty()) passed++; else failed++;
        System.out.println((problem.isEmpty() ? "ok   java " : "FAIL java ") + label + (problem.isEmpty() ? "" : ": " + problem));
    }

    static String attempt(Connection c, Map<String, Object> s, String[] pass, String client) {
        try {
            if (s.containsKey("password")) connect(pass[1], (String) s.get("password")).close();
            Map<String, Object> got = s.containsKey("password") ? null
                    : pass[0].equals("call") ? call(c, s, client) : batch(c, s, client);
            return s.containsKey("error") ? "expected error " + s.get("error") : mismatch(s, got, client);
        } catch (RuntimeException e) {
            return e.toString();
        } catch (SQLException e) {
            boolean expected = s.containsKey("error") && ((Long) s.get("error")).intValue() == e.getErrorCode()
                    && e.getMessage().equals(s.get("text"));
            return expected ? "" : e.getErrorCode() + " " + e.getMessage();
        }
    }

    static List<List<Object>> params(Map<String, Object> s) { return (List<List<Object>>) s.get("params"); }

    static final Map<String, Integer> TYPES = Map.of("varchar", Types.VARCHAR, "nvarchar", Types.NVARCHAR,
            "int", Types.INTEGER, "smallint", Types.SMALLINT, "float", Types.DOUBLE, "real", Types.REAL,
            "varbinary", Types.VARBINARY);

    static int sqlType(List<Object> p) { return TYPES.get(((String) p.get(0)).replaceAll("\\(.*", "")); }

    static void set(PreparedStatement st, int i, List<Object> p, String client) throws SQLException {
        Object v = p.get(1);
        int type = sqlType(p);
        if (v == null) st.setNull(i, type == Types.NVARCHAR ? Types.VARCHAR : type);
        else if (type == Types.VARBINARY) st.setBytes(i, hex(((String) v).substring(2)));
        else if (v instanceof String) st.setString(i, ((String) v).replace("@CLIENT@", client));
        else if (type == Types.DOUBLE || type == Types.REAL) st.setObject(i, ((Number) v).doubleValue(), type);
        else st.setObject(i, ((Number) v).intValue(), type);
    }

    // Reads every result of a statement: row sets, and the warnings that carry the messages.
    static List<List<List<Object>>> results(Statement st, boolean isResultSet, List<String> messages) throws SQLException {
        List<List<List<Object>>> sets = new ArrayList<>();
        for (int i = 0; i < 50; i++) {
            if (isResultSet) {
                List<List<Object>> rows = new ArrayList<>();
                try (ResultSet rs = st.getResultSet()) {
                    while (rs.next()) {
                        List<Object> row = new ArrayList<>();
                        for (int col = 1; col <= rs.getMetaData().getColumnCount(); col++) row.add(rs.getObject(col));
                        rows.add(row);
                    }
                }
                sets.add(rows);
            } else if (st.getUpdateCount() == -1) break;
            isResultSet = st.getMoreResults();
        }
        for (SQLWarning w = st.getWarnings(); w != null; w = w.getNextWarning()) messages.add(w.getMessage());
        return sets;
    }

    static Map<String, Object> call(Connection c, Map<String, Object> s, String client) throws SQLException {
        List<List<Object>> ps = params(s);
        String marks = String.join(", ", Collections.nCopies(ps.size(), "?"));
        try (CallableStatement st = c.prepareCall("{? = call " + s.get("proc") + (ps.isEmpty() ? "" : "(" + marks + ")") + "}")) {
            st.registerOutParameter(1, Types.INTEGER);
            for (int i = 0; i < ps.size(); i++) {
                set(st, i + 2, ps.get(i), client);
                if (ps.get(i).size() > 2) st.registerOutParameter(i + 2, sqlType(ps.get(i)) == Types.NVARCHAR ? Types.VARCHAR : sqlType(ps.get(i)));
            }
            Map<String, Object> got = new HashMap<>();
            List<String> messages = new ArrayList<>();
            List<List<List<Object>>> sets = results(st, st.execute(), messages);
            Map<String, Object> outputs = new HashMap<>();
            for (int i = 0; i < ps.size(); i++) if (ps.get(i).size() > 2) outputs.put(String.valueOf(i + 1), st.getObject(i + 2));
            got.put("return", (long) st.getInt(1));
            got.put("messages", messages);
            got.put("outputs", outputs);
            got.put("rows", sets.isEmpty() ? List.of() : sets.get(0));
            return got;
        }
    }

    static Map<String, Object> batch(Connection c, Map<String, Object> s, String client) throws SQLException {
        List<List<Object>> ps = params(s);
        try (PreparedStatement st = c.prepareStatement(((String) s.get("batch")).replaceAll("@p\\d+\\b", "?"))) {
            int mark = 1;
            for (List<Object> p : ps) if (p.get(1) != null) set(st, mark++, p, client);
            List<String> messages = new ArrayList<>();
            List<List<List<Object>>> sets = results(st, st.execute(), messages);
            List<Object> last = sets.remove(sets.size() - 1).get(0);
            Map<String, Object> outputs = new HashMap<>();
            int column = 1;
            for (int i = 0; i < ps.size(); i++) if (ps.get(i).size() > 2) outputs.put(String.valueOf(i + 1), last.get(column++));
            Map<String, Object> got = new HashMap<>();
            got.put("return", ((Number) last.get(0)).longValue());
            got.put("messages", messages);
            got.put("outputs", outputs);
            got.put("rows", sets.isEmpty() ? List.of() : sets.get(0));
            return got;
        }
    }

    static String mismatch(Map<String, Object> s, Map<String, Object> got, String client) {
        Map<String, Object> want = (Map<String, Object>) s.get("expect");
        if (!want.get("return").equals(got.get("return"))) return "return " + got.get("return") + ", expected " + want.get("return");
        if (!want.get("messages").equals(got.get("messages"))) return "messages " + got.get("messages") + ", expected " + want.get("messages");
        Map<String, Object> outs = (Map<String, Object>) want.get("outputs");
        for (String n : outs.keySet()) {
            Object g = ((Map<String, Object>) got.get("outputs")).get(n), w = outs.get(n);
            boolean floating = g instanceof Number && w != null && sqlType(params(s).get(Integer.parseInt(n) - 1)) != Types.INTEGER
                    && sqlType(params(s).get(Integer.parseInt(n) - 1)) != Types.SMALLINT;
            if (floating ? ((Number) g).doubleValue() != Double.parseDouble((String) w) : !Objects.equals(text(g), fix(w, client)))
                return "output " + n + " " + text(g) + ", expected " + w;
        }
        List<List<Object>> rows = (List<List<Object>>) got.get("rows");
        List<List<Object>> wantRows = want.get("rows") == null ? List.of() : (List<List<Object>>) want.get("rows");
        boolean same = rows.size() == wantRows.size();
        for (int r = 0; same && r < rows.size(); r++) {
            same = rows.get(r).size() == wantRows.get(r).size();
            for (int col = 0; same && col < rows.get(r).size(); col++)
                same = Objects.equals(text(rows.get(r).get(col)), fix(wantRows.get(r).get(col), client));
        }
        return same ? "" : "rows " + rows.stream().map(row -> row.stream().map(Scenarios::text).toList()).toList() + ", expected " + wantRows;
    }

    static Object fix(Object v, String client) { return v instanceof String ? ((String) v).replace("@CLIENT@", client) : v; }

    static String text(Object v) {
        if (v == null) return null;
        if (!(v instanceof byte[])) return v.toString();
        StringBuilder b = new StringBuilder("0x");
        for (byte x : (byte[]) v) b.append(String.format("%02X", x));
        return b.toString();
    }

    static byte[] hex(String h) {
        byte[] out = new byte[h.length() / 2];
        for (int i = 0; i < out.length; i++) out[i] = (byte) Integer.parseInt(h.substring(2 * i, 2 * i + 2), 16);
        return out;
    }

    // Just enough JSON for expected.json: objects, arrays, strings, numbers, null, booleans.
    static final class Json {
        final String s;
        int at;
        Json(String s) { this.s = s; }

        Object value() {
            while (Character.isWhitespace(s.charAt(at))) at++;
            char ch = s.charAt(at);
            if (ch == '{' || ch == '[') {
                boolean object = ch == '{';
                Map<String, Object> map = new LinkedHashMap<>();
                List<Object> list = new ArrayList<>();
                at++;
                while (true) {
                    while (Character.isWhitespace(s.charAt(at))) at++;
                    if (s.charAt(at) == (object ? '}' : ']')) { at++; return object ? map : list; }
                    if (s.charAt(at) == ',') { at++; continue; }
                    if (!object) { list.add(value()); continue; }
                    String key = (String) value();
                    while (s.charAt(at) != ':') at++;
                    at++;
                    map.put(key, value());
                }
            }
            if (ch == '"') {
                StringBuilder b = new StringBuilder();
                for (at++; (ch = s.charAt(at++)) != '"'; ) {
                    if (ch != '\\') { b.append(ch); continue; }
                    ch = s.charAt(at++);
                    if (ch == 'u') { b.append((char) Integer.parseInt(s.substring(at, at + 4), 16)); at += 4; }
                    else b.append(ch == 'n' ? '\n' : ch == 't' ? '\t' : ch == 'r' ? '\r' : ch == 'b' ? '\b' : ch == 'f' ? '\f' : ch);
                }
                return b.toString();
            }
            for (String word : new String[] {"null", "true", "false"})
                if (s.startsWith(word, at)) { at += word.length(); return word.equals("null") ? null : Boolean.valueOf(word); }
            int start = at;
            while (at < s.length() && "+-0123456789.eE".indexOf(s.charAt(at)) >= 0) at++;
            String n = s.substring(start, at);
            return n.matches("-?\\d+") ? (Object) Long.parseLong(n) : (Object) Double.parseDouble(n);
        }
    }
}

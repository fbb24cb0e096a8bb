// What the tests share: checks that fail with a message, waits with deadlines, a free loopback
// port, and programs (zanth-sim, the sample host) started by a test and always stopped.

using System;
using System.Collections.Generic;
using System.Diagnostics;
using System.IO;
using System.Net;
using System.Net.Sockets;
using System.Text;
using System.Threading;

namespace Zanth.Tests
{
    public sealed class TestFailure : Exception
    {
        public TestFailure(string message) : base(message) { }
    }

    public static class Assert
    {
        public static void True(bool condition, string what)
        {
            if (!condition) throw new TestFailure(what);
        }

        public static void Equal<T>(T expected, T actual, string what)
        {
            if (!EqualityComparer<T>.Default.Equals(expected, actual))
            {
                throw new TestFailure(what + ": expected <" + expected + ">, got <" + actual + ">");
            }
        }

        public static void Contains(string part, string text, string what)
        {
            if (text == null || text.IndexOf(part, StringComparison.Ordinal) < 0)
            {
                throw new TestFailure(what + ": <" + part + "> not in <" + text + ">");
            }
        }

        /// <summary>Runs `action`, which must throw exactly a T; returns it.</summary>
        public static T Throws<T>(Action action, string what) where T : Exception
        {
            try
            {
                action();
            }
            catch (Exception e)
            {
                if (e.GetType() == typeof(T)) return (T)e;
                throw new TestFailure(what + ": expected " + typeof(T).Name + ", got " + e.GetType().Name + ": " + e.Message);
            }
            throw new TestFailure(what + ": expected " + typeof(T).Name + ", nothing was thrown");
        }
    }

    public static class Wait
    {
        /// <summary>Polls `condition` every 10 ms until it holds (true) or `seconds` pass (false).</summary>
        public static bool Until(Func<bool> condition, double seconds = 15)
        {
            DateTime deadline = DateTime.UtcNow.AddSeconds(seconds);
            while (!condition())
            {
                if (DateTime.UtcNow >= deadline) return false;
                Thread.Sleep(10);
            }
            return true;
        }
    }

    public static class Net
    {
        /// <summary>A TCP port on 127.0.0.1 that nothing listened on a moment ago.</summary>
        public static int FreePort()
        {
            var listener = new TcpListener(IPAddress.Loopback, 0);
            listener.Start();
            int port = ((IPEndPoint)listener.LocalEndpoint).Port;
            listener.Stop();
            return port;
        }
    }

    /// <summary>The programs a test starts: each is noted in the sandbox, so that the runner stops
    /// it even when the test's process dies, and stopped when the test ends.</summary>
    public static class Sandbox
    {
        public const string Variable = "ZANTH_TEST_SANDBOX";
        static readonly List<Spawned> started = new List<Spawned>();

        public static string Dir
        {
            get { return Environment.GetEnvironmentVariable(Variable) ?? Directory.GetCurrentDirectory(); }
        }

        public static void Track(Spawned p)
        {
            lock (started) started.Add(p);
            File.AppendAllText(Path.Combine(Dir, "pids"), p.Id + " " + p.Name + "\n");
        }

        public static void StopAll()
        {
            List<Spawned> all;
            lock (started) all = new List<Spawned>(started);
            foreach (Spawned p in all) p.Dispose();
        }

        /// <summary>The runner's side: stops what a test in `dir` started and left running.</summary>
        public static void StopLeftovers(string dir)
        {
            string list = Path.Combine(dir, "pids");
            if (!File.Exists(list)) return;
            foreach (string line in File.ReadAllLines(list))
            {
                string[] parts = line.Split(new[] { ' ' }, 2);
                int pid;
                if (parts.Length != 2 || !int.TryParse(parts[0], out pid)) continue;
                try
                {
                    // The process of that id must still be the one started: its command line says.
                    string cmdline = File.ReadAllText("/proc/" + pid + "/cmdline");
                    if (cmdline.IndexOf(parts[1], StringComparison.Ordinal) < 0) continue;
                    using (Process p = Process.GetProcessById(pid))
                    {
                        p.Kill();
                        p.WaitForExit(5000);
                    }
                    Console.Error.WriteLine("runner: stopped " + parts[1] + " (" + pid + "), left running by the test");
                }
                catch (Exception)
                {
                    // Gone already.
                }
            }
        }
    }

    /// <summary>A program started by a test, its output gathered; killed on Dispose.</summary>
    public class Spawned : IDisposable
    {
        readonly Process process;
        readonly StringBuilder output = new StringBuilder();
        bool stopped;

        public string Name { get; private set; }
        public int Id { get { return process.Id; } }

        public Spawned(string path, string arguments, bool redirectInput = false)
        {
            Name = Path.GetFileName(path);
            var start = new ProcessStartInfo(path, arguments)
            {
                UseShellExecute = false,
                RedirectStandardOutput = true,
                RedirectStandardError = true,
                RedirectStandardInput = redirectInput,
                WorkingDirectory = Sandbox.Dir,
            };
            process = new Process { StartInfo = start };
            process.OutputDataReceived += (s, e) => { if (e.Data != null) lock (output) output.Append(e.Data).Append('\n'); };
            process.ErrorDataReceived += (s, e) => { if (e.Data != null) lock (output) output.Append(e.Data).Append('\n'); };
            process.Start();
            process.BeginOutputReadLine();
            process.BeginErrorReadLine();
            Sandbox.Track(this);
        }

        public string Output
        {
            get { lock (output) return output.ToString(); }
        }

        public bool HasExited { get { return process.HasExited; } }

        public StreamWriter Input { get { return process.StandardInput; } }

        /// <summary>Waits for the program to end by itself; its exit code, or null at the deadline.</summary>
        public int? WaitForExit(double seconds)
        {
            if (!process.WaitForExit((int)(seconds * 1000))) return null;
            process.WaitForExit();  // the output's last lines
            stopped = true;
            return process.ExitCode;
        }

        public void Dispose()
        {
            if (stopped) return;
            stopped = true;
            try
            {
                if (!process.HasExited)
                {
                    process.Kill();
                    process.WaitForExit(5000);
                }
            }
            catch (InvalidOperationException)
            {
            }
        }

        /// <summary>The path a test program is given in the environment variable `name`.</summary>
        public static string FromEnvironment(string name)
        {
            string path = Environment.GetEnvironmentVariable(name);
            if (string.IsNullOrEmpty(path) || !File.Exists(path))
            {
                throw new TestFailure(name + " must name the program (got \"" + path + "\")");
            }
            return path;
        }
    }

    /// <summary>zanth-sim dialling 127.0.0.1:port, for at most `--duration-s` (a bound of its own,
    /// should everything else fail).</summary>
    public sealed class Simulator : Spawned
    {
        public Simulator(int port, string extra = "")
            : base(FromEnvironment("ZANTH_SIM"), "--host 127.0.0.1 --port " + port + " --duration-s 170 " + extra)
        {
        }
    }
}

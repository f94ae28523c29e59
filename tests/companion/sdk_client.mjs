// The official MCP TypeScript SDK's client, run against the companion: it starts the program
// over standard input and output, negotiates, lists the tools and has save_audio write a file.
//   node sdk_client.mjs SDK_ROOT COMPANION WAV_PATH TEXT
// Prints one JSON object with what the client saw; exits 1 when the client itself fails.
import { pathToFileURL } from "node:url";
import { join } from "node:path";

const [sdkRoot, companion, wavPath, text] = process.argv.slice(2);
const sdk = join(sdkRoot, "node_modules", "@modelcontextprotocol", "sdk", "dist", "esm");
const { Client } = await import(pathToFileURL(join(sdk, "client", "index.js")).href);
const { StdioClientTransport } = await import(pathToFileURL(join(sdk, "client", "stdio.js")).href);

const transport = new StdioClientTransport({
    command: companion,
    args: ["mcp"],
    env: { ...process.env },
    stderr: "inherit",
});
const client = new Client({ name: "murmela-test", version: "1.0.0" });
await client.connect(transport);

const seen = {
    server: client.getServerVersion(),
    capabilities: client.getServerCapabilities(),
};
const listed = await client.listTools();
seen.tools = listed.tools.map((tool) => ({ name: tool.name, inputSchema: tool.inputSchema }));
seen.saved = await client.callTool({ name: "save_audio", arguments: { text, path: wavPath } });
seen.refused = await client.callTool({
    name: "save_audio",
    arguments: { text, path: "relative.wav", speed: 9 },
});
await client.close();
console.log(JSON.stringify(seen));

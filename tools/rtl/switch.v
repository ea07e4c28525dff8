// A small switch chip: 64 registers of 32 bits at byte address 0, and a table of 1,024 words with an
// error correcting code at 0x1000. An access takes one clock. README.md lists the registers.
module switch_chip (
    input wire clock,
    // The bus.
    input wire access,
    input wire write,
    input wire [15:2] address,  // of words
    input wire [31:0] writeData,
    output reg [31:0] readData,
    // The fault port flips these bits of the word at `address`, which is no access.
    input wire fault,
    input wire [38:0] faultBits,
    // The probe shows what is held at `address`, without a clock.
    output wire [38:0] probeTable,
    output wire [31:0] probeRegister,
    output wire [31:0] probeTotal
);
  localparam [5:0] IDENTITY = 0, CONTROL = 2, STRAP = 3, INTERRUPT = 4, ERROR = 5, CLOCKS = 6,
      COMMAND = 7, CORRECTED = 8, UNCORRECTABLE = 9, PACKETS = 10, INJECTED = 15, PORTS = 56;
  localparam [5:0] LATCH_CORRECTED = 0, LATCH_UNCORRECTABLE = 1, LATCH_LINK = 2;

  // A word of the table: the parity of all, 6 check bits, 32 bits of data.
  reg [38:0] words[0:1023];
  reg [31:0] held[0:63];
  // Everything that the counters ever counted: for the probe alone, no access reaches it.
  reg [31:0] totals[0:7];
  reg [15:0] noise;

  initial begin : power_on
    integer i;
    for (i = 0; i < 1024; i = i + 1) words[i] = 0;
    for (i = 0; i < 64; i = i + 1) held[i] = 0;
    for (i = 0; i < 8; i = i + 1) totals[i] = 0;
    held[IDENTITY] = 32'h5a17c40a;
    held[STRAP] = 32'h00000351;
    noise = 16'hace1;
    readData = 0;
  end

  // Data bit i stands at this place of the Hamming code; the powers of two are the check bits'.
  function automatic [5:0] place(input integer i);
    if (i < 1) place = 3;
    else if (i < 4) place = i[5:0] + 4;
    else if (i < 11) place = i[5:0] + 5;
    else if (i < 26) place = i[5:0] + 6;
    else place = i[5:0] + 7;
  endfunction

  function automatic [5:0] checks(input [31:0] data);
    integer i;
    checks = 0;
    for (i = 0; i < 32; i = i + 1) if (data[i]) checks = checks ^ place(i);
  endfunction

  function automatic [38:0] encode(input [31:0] data);
    encode = {^{checks(data), data}, checks(data), data};
  endfunction

  // The bits that a word with a single wrong bit has wrong; 0 where no single bit explains it.
  function automatic [38:0] wrong_bit(input [5:0] syndrome);
    integer i;
    wrong_bit = 0;
    if (syndrome == 0) wrong_bit[38] = 1;
    for (i = 0; i < 6; i = i + 1) if (syndrome == (6'd1 << i)) wrong_bit[32+i] = 1;
    for (i = 0; i < 32; i = i + 1) if (syndrome == place(i)) wrong_bit[i] = 1;
  endfunction

  wire [9:0] index = address[11:2];
  wire [5:0] number = address[7:2];
  wire is_table = address[15:12] == 1;
  wire is_register = address[15:8] == 0;
  wire is_counter = is_register && number >= CORRECTED && number <= INJECTED;

  assign probeTable = words[index];
  assign probeRegister = held[number];
  assign probeTotal = totals[number[2:0]];

  // A step of the chip is a sequence: what the network does, the access, the fault.
  /* verilator lint_off BLKSEQ */
  task automatic count(input [5:0] counter, input [31:0] events);
    held[counter] = held[counter] + events;
    totals[counter[2:0]] = totals[counter[2:0]] + events;
  endtask

  task automatic read_table;
    reg [38:0] word, flips;
    reg [5:0] syndrome;
    word = words[index];
    syndrome = word[37:32] ^ checks(word[31:0]);
    flips = ^word ? wrong_bit(syndrome) : 0;
    readData = word[31:0] ^ flips[31:0];
    if (flips != 0) begin
      words[index] = word ^ flips;
      count(CORRECTED, 1);
      held[INTERRUPT][LATCH_CORRECTED[4:0]] = 1;
    end else if (syndrome != 0 || ^word) begin
      count(UNCORRECTABLE, 1);
      held[INTERRUPT][LATCH_UNCORRECTABLE[4:0]] = 1;
      held[ERROR] = {22'd0, index};
    end
  endtask

  task automatic write_register;
    case (number)
      IDENTITY, STRAP, ERROR, CLOCKS: ;  // read-only
      // 16 enables, and 16 latches, each cleared by writing 1.
      INTERRUPT: held[number] = {writeData[31:16], held[number][15:0] & ~writeData[15:0]};
      COMMAND: count(INJECTED, {24'd0, writeData[7:0]});
      default:
      if (number >= PORTS) held[number] = {held[number][31], writeData[30:0]};
      else if (!is_counter) held[number] = writeData;
    endcase
  endtask

  // Packets of five ports, and links that come and go.
  task automatic network;
    integer port;
    noise = {noise[14:0], noise[15] ^ noise[13] ^ noise[12] ^ noise[10]};
    for (port = 0; port < 5; port = port + 1)
      if (noise[3*port+:3] == 0) count(PACKETS + port[5:0], 1);
    if (noise[15:8] == 8'h5a) begin
      held[PORTS+{3'd0, noise[2:0]}][31] = !held[PORTS+{3'd0, noise[2:0]}][31];
      held[INTERRUPT][LATCH_LINK[4:0]] = 1;
    end
  endtask

  always @(posedge clock) begin
    held[CLOCKS] = held[CLOCKS] + 1;
    if (held[CONTROL][0]) network;
    if (access && !write) begin
      readData = 0;
      if (is_table) read_table;
      if (is_register && number != COMMAND) readData = held[number];
      if (is_counter) held[number] = 0;
    end
    if (access && write) begin
      if (is_table) words[index] = encode(writeData);
      if (is_register) write_register;
    end
    if (fault) begin
      if (is_table) words[index] = words[index] ^ faultBits;
      if (is_register && number != IDENTITY) held[number] = held[number] ^ faultBits[31:0];
    end
  end
endmodule

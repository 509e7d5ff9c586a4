-- Turns docs/plim.md into the plim(1) manual page (pandoc -t man --lua-filter). The title line
-- "plim — what it is" becomes the NAME section, the level-2 sections the page's sections (upper
-- case, as manual pages write them), and table columns get widths from their own text so that
-- tbl can fit them on an 80-column terminal.
local LINE = 72

local function fit_columns(t)
  local n = #t.colspecs
  local longest = {}
  for i = 1, n do longest[i] = 0 end
  local function measure(rows)
    for _, row in ipairs(rows) do
      for i, cell in ipairs(row.cells) do
        local len = utf8.len(pandoc.utils.stringify(cell.contents)) or 0
        if len > longest[i] then longest[i] = len end
      end
    end
  end
  measure(t.head.rows)
  for _, body in ipairs(t.bodies) do measure(body.body) end
  local used = 0
  for i = 1, n - 1 do
    local w = math.min(longest[i] + 2, 28) / LINE
    t.colspecs[i] = {t.colspecs[i][1], w}
    used = used + w
  end
  t.colspecs[n] = {t.colspecs[n][1], 0.92 - used}
  return t
end

function Pandoc(doc)
  local blocks = {}
  for _, block in ipairs(doc.blocks) do
    if block.t == 'Header' and block.level == 1 then
      local name, what = pandoc.utils.stringify(block.content):match('^(%S+) — (.*)$')
      table.insert(blocks, pandoc.Header(1, 'NAME'))
      table.insert(blocks, pandoc.Para({pandoc.Str(name .. ' - ' .. what)}))
      doc.meta.title = pandoc.MetaInlines({pandoc.Str(name:upper())})
    elseif block.t == 'Header' then
      block.level = block.level - 1
      if block.level == 1 then
        block.content = {pandoc.Str(pandoc.utils.stringify(block.content):upper())}
      end
      table.insert(blocks, block)
    elseif block.t == 'Table' then
      table.insert(blocks, fit_columns(block))
    else
      table.insert(blocks, block)
    end
  end
  doc.blocks = blocks
  return doc
end

-- The table that the central rsyslog writes to: psql -d logs -f records.sql
create table records (
  id       bigserial primary key,
  device   text not null,
  received timestamp not null,     -- by the rsyslog on the device, in the device's time zone
  record   text not null           -- as `devlog --json` writes it
);

-- A record has a ring, a number and a time in milliseconds: the same one a second time is a repetition.
create unique index on records (device, (received::date), md5(record));

create view messages as
  select id, device, received::date + (record::json ->> 'time')::time as at, record::json ->> 'ring' as ring,
         (record::json ->> 'type')::int as type, (record::json ->> 'sequence')::int as sequence,
         record::json ->> 'status' as status, record::json ->> 'process' as process, record::json ->> 'text' as text
  from records;

grant insert, select on records to rsyslog;
grant usage on sequence records_id_seq to rsyslog;
